// The store tool's side of the sign-in, in pieces as a terminal gives them.
#include "core/tool_output.h"
#include "fuzzing.h"
#include "signin/secret_text.h"
#include "signin/sign_in_dialogue.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestTranscript = 32768;
constexpr qsizetype kKeptTranscript = 16384;
constexpr qsizetype kLongestPrompt = 64;

const std::array kShownFailures{
    u"Apple не приняла код. Повторите вход со свежим кодом."_s,
    u"Apple отклонила запрос или ограничила частоту входов. Повторите позже."_s,
    u"Хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."_s,
    u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s,
};

/// Lengths of pieces that follow from the first bytes of the input: the same input is always cut the same
/// way.
class Cuts
{
public:
    explicit Cuts(QByteArrayView seeds)
        : m_seeds(seeds)
    {
    }

    qsizetype next()
    {
        if (m_seeds.isEmpty())
            return 1;
        return 1 + static_cast<quint8>(m_seeds[m_at++ % m_seeds.size()]) % 40;
    }

private:
    QByteArrayView m_seeds;
    qsizetype m_at = 0;
};

/// Reads `bytes` in pieces and hands each to `take` as text.
template <typename Take>
void readInPieces(QByteArrayView bytes, Cuts cuts, Take take)
{
    TerminalDecoder decoder;
    while (!bytes.isEmpty()) {
        const qsizetype length = std::min(cuts.next(), bytes.size());
        take(decoder.decode(bytes.first(length)));
        bytes = bytes.sliced(length);
    }
}

void checkPieces(QByteArrayView bytes, const Cuts &cuts, const DialogueState &state)
{
    QString transcript;
    QString everything;
    bool asked = false;
    readInPieces(bytes, cuts, [&](const QString &piece) {
        AppendToTranscript(transcript, piece);
        everything += piece;
        Require(transcript.size() <= kLongestTranscript, "a transcript is bounded");
        Require(everything.endsWith(transcript), "of a transcript the end is kept");
        if (everything.size() <= kLongestTranscript)
            Require(PromptIn(transcript, state) == PromptIn(everything, state),
                    "a prompt is found in pieces");
        else if (PromptIn(everything.last(kKeptTranscript - kLongestPrompt), state) != Prompt::None)
            Require(PromptIn(transcript, state) != Prompt::None, "a prompt at the end is found");
        asked = asked || PromptIn(transcript, state) != Prompt::None;
    });
    TerminalDecoder decoder;
    if (bytes.toByteArray().isValidUtf8()) {
        Require(everything == decoder.decode(bytes), "UTF-8 in pieces is the text as a whole");
        Require(everything.toUtf8() == bytes, "UTF-8 becomes the same text");
    }
    if (PromptIn(everything, state) != Prompt::None)
        Require(asked, "no prompt is missed, however it arrives");
}

/// Plays the window's part: every prompt is answered once, in its order, and the transcript begins anew.
void playDialogue(QByteArrayView bytes, const Cuts &cuts)
{
    QString transcript;
    DialogueState state;
    int codes = 0;
    readInPieces(bytes, cuts, [&](const QString &piece) {
        AppendToTranscript(transcript, piece);
        const Prompt prompt = PromptIn(transcript, state);
        if (prompt == Prompt::None)
            return;
        transcript.clear();
        Require(prompt != Prompt::Account || !state.sentAccount, "the account is sent once");
        Require(prompt != Prompt::Password || (state.sentAccount && !state.sentPassword),
                "the password is sent once, and after the account");
        Require(prompt != Prompt::Code || !state.needsCode, "a code is asked for once at a time");
        state.sentAccount = state.sentAccount || prompt == Prompt::Account;
        state.sentPassword = state.sentPassword || prompt == Prompt::Password;
        // The user answers every second request.
        state.needsCode = prompt == Prompt::Code ? ++codes % 2 == 1 : state.needsCode;
    });
    const QString shown = SignInFailure(transcript);
    Require(std::find(kShownFailures.begin(), kShownFailures.end(), shown) != kShownFailures.end(),
            "nothing of the transcript is shown");
    Require(!IsSignedIn(transcript, 1), "who did not end well is not signed in");
    if (IsSignedIn(transcript, 0))
        Require(!ZarvoJSON(transcript).isEmpty(), "the tool says in JSON that it succeeded");
}

void checkInput(const QString &text)
{
    if (AreCredentials(text, text)) {
        const SecretBytes line = SecretLine(text);
        Require(std::count(line.begin(), line.end(), '\n') == 1 && line.back() == '\n',
                "an answer is one line");
        Require(std::find(line.begin(), line.end(), '\r') == line.end(), "an answer is one line");
    }
    if (IsVerificationCode(text))
        Require(text.toLatin1().toInt() < 1'000'000 && text.size() == 6, "a code has six digits");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QList<QByteArrayView> parts = PartsOf(BytesOf(data, size), 2);
    const Cuts cuts(parts[0]);
    const QByteArrayView printed = parts[1];
    for (int bits = 0; bits < 8; ++bits)
        checkPieces(printed, cuts, {(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0});
    playDialogue(printed, cuts);
    checkInput(TextFrom(printed));
    return 0;
}
