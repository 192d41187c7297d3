#include "signin/sign_in_dialogue.h"

#include "core/password_policy.h"
#include "core/tool_output.h"

#include <QStringDecoder>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestTranscript = 32768;
constexpr qsizetype kKeptTranscript = 16384;
constexpr qsizetype kLongestAccount = 1024;
constexpr qsizetype kLongestPassword = 4096;
constexpr qsizetype kCodeLength = 6;

constexpr QLatin1StringView kAccountPrompt("enter Apple ID (email address or phone number):");
constexpr QLatin1StringView kPasswordPrompt("enter password:");
constexpr QLatin1StringView kCodePrompt("enter 2FA code:");
constexpr QLatin1StringView kPassphrasePrompt("enter passphrase to unlock");

struct FailureRule
{
    QLatin1StringView sign;
    QLatin1StringView otherSign;
    QStringView message;
};

constexpr std::array kFailures{
    FailureRule{"fresh 2fa"_L1, "invalid verification"_L1,
                u"Apple не приняла код. Повторите вход со свежим кодом."},
    FailureRule{"429"_L1, "403"_L1,
                u"Apple отклонила запрос или ограничила частоту входов. Повторите позже."},
    FailureRule{"file locked"_L1, "operation not permitted"_L1,
                u"Хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."},
};
constexpr QStringView kOtherFailure =
    u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple.";

// The bytes at the end that begin a UTF-8 character whose rest is still missing.
qsizetype cutLength(QByteArrayView bytes)
{
    constexpr qsizetype kLongestStart = 3;
    for (qsizetype length = 1; length <= std::min(kLongestStart, bytes.size()); ++length) {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - length]);
        if ((byte & 0xC0U) == 0x80U)
            continue; // inside a character: its first byte is further left
        const qsizetype whole = byte >= 0xF0U ? 4 : byte >= 0xE0U ? 3 : byte >= 0xC0U ? 2 : 1;
        return length < whole ? length : 0;
    }
    return 0;
}

} // namespace

Prompt PromptIn(QStringView transcript, const DialogueState &state)
{
    if (transcript.contains(kPassphrasePrompt))
        return Prompt::Passphrase;
    if (!state.sentAccount && transcript.contains(kAccountPrompt))
        return Prompt::Account;
    if (state.sentAccount && !state.sentPassword && transcript.contains(kPasswordPrompt))
        return Prompt::Password;
    if (!state.needsCode && transcript.contains(kCodePrompt))
        return Prompt::Code;
    return Prompt::None;
}

QString TerminalDecoder::decode(QByteArrayView piece)
{
    QByteArray bytes = m_cut;
    bytes.append(piece);
    const qsizetype cut = cutLength(bytes);
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(QByteArrayView(bytes).chopped(cut));
    if (decoder.hasError()) {
        m_cut.clear();
        return QString::fromLatin1(bytes);
    }
    m_cut = bytes.last(cut);
    return text;
}

void AppendToTranscript(QString &transcript, QStringView text)
{
    transcript.append(text);
    if (transcript.size() > kLongestTranscript)
        transcript.remove(0, transcript.size() - kKeptTranscript);
}

bool IsSignedIn(const QString &transcript, int exitStatus)
{
    const QList<QJsonObject> objects = ZarvoJSON(transcript);
    const auto succeeded = [](const QJsonObject &object) { return JSONTruth(object["success"_L1]); };
    return exitStatus == 0 && std::any_of(objects.begin(), objects.end(), succeeded);
}

QString SignInFailure(const QString &transcript)
{
    const QString lower = transcript.toLower();
    for (const FailureRule &rule : kFailures) {
        if (lower.contains(rule.sign) || lower.contains(rule.otherSign))
            return rule.message.toString();
    }
    return kOtherFailure.toString();
}

bool AreCredentials(QStringView account, QStringView password)
{
    const auto isLineBreak = [](QChar c) {
        return (c >= u'\n' && c <= u'\r') || c == u'\u0085' || c == QChar::LineSeparator ||
               c == QChar::ParagraphSeparator;
    };
    return !account.isEmpty() && account.size() <= kLongestAccount &&
           std::none_of(account.begin(), account.end(), isLineBreak) && !password.isEmpty() &&
           password.size() <= kLongestPassword && ZarvoLatin(password);
}

bool IsVerificationCode(QStringView text)
{
    return text.size() == kCodeLength &&
           std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
}
