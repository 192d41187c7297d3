// Reading the store tool's side of the sign-in dialogue. Plain functions, any thread.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>

/// What has been answered so far.
struct DialogueState
{
    bool sentAccount = false;
    bool sentPassword = false;
    bool needsCode = false; ///< the code has been asked for and not been sent yet
};

/// What the tool may be waiting for.
enum class Prompt {
    None,
    Account,
    Password,
    Code,
    Passphrase ///< of the tool's own key store, which nobody here knows
};

/// The question in `transcript` (what was read since the last answered one) that is to be dealt with next.
Prompt PromptIn(QStringView transcript, const DialogueState &state);

/// Turns what is read from a terminal, piece by piece, into text.
class TerminalDecoder
{
public:
    /// The next piece: UTF-8, or Latin-1 when it is not. A character that the end of the piece cuts in two
    /// comes with the next one: taken for Latin-1, half of a Cyrillic letter can be a line end in the middle
    /// of the tool's answer.
    QString decode(QByteArrayView piece);

private:
    QByteArray m_cut;
};

/// Adds `text`; of a transcript that grows beyond 32768 UTF-16 units the last 16384 are kept.
void AppendToTranscript(QString &transcript, QStringView text);

/// True when the tool said that it succeeded and ended well. Both are needed.
bool IsSignedIn(const QString &transcript, int exitStatus);
/// Why a sign-in that ended without success failed, in the words that the user reads.
QString SignInFailure(const QString &transcript);

/// May these be sent? The account is given without blanks around it.
bool AreCredentials(QStringView account, QStringView password);
/// Six ASCII digits.
bool IsVerificationCode(QStringView text);
