// Signing in to an Apple Account: the store tool's dialogue, held on a pseudo-terminal.
#pragma once

#include "core/child_process.h"
#include "core/file_descriptor.h"
#include "signin/core_dump_guard.h"
#include "signin/input_source.h"
#include "signin/secret_text.h"
#include "signin/sign_in_dialogue.h"

#include <QObject>
#include <QPointer>
#include <QScopedPointer>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QSocketNotifier;
class QTimer;
class QVBoxLayout;
class SecretField;
class SignInWindow;
class ZarvoSecurePasswordField;

/// Where the sign-in stands, as far as the window shows it.
enum class SignInStep {
    Editing,  ///< the account and the password are being typed
    Waiting,  ///< for the tool
    Code,     ///< the code is wanted
    Verifying ///< the code has been sent
};

/// One sign-in: its window, the tool's child process, and the secrets while they are needed. They pass from
/// the fields to the tool's terminal and nowhere else: not to a command line, an environment, a file or a
/// log. An attempt that fails leaves the window open for the next one. Main thread only.
class LegacyAuth : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LegacyAuth)

public:
    /// True when the user is signed in; false when he gave up.
    using Completion = std::function<void(bool success)>;
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// `executable` is the store tool's absolute path, `account` the proposed one or empty. `completion` is
    /// called once, as the last thing that the object does, and may give it to deleteLater(), not delete it.
    LegacyAuth(QWidget *parent, const QString &executable, const QString &account, Completion completion,
               std::unique_ptr<InputSource> input = InputSource::ofThisDesktop(),
               Clock clock = &std::chrono::steady_clock::now);
    /// Ends a sign-in that is still open, without a word.
    ~LegacyAuth() override;

    void show();
    /// As it stands in its field, without blanks around it.
    QString typedAccount() const;

private:
    // Session (signin/sign_in_session.cpp)
    void start();
    void launchWithAccount(const QString &name, SecretText secret);
    bool startTool(const FileDescriptor &slave, Error *error);
    void watch();
    bool send(QStringView text);
    bool readAvailable();
    void hangUp();
    void answer();
    void askForCode();
    void submit();
    void resend();
    void finishProcess(const std::shared_ptr<ChildProcess> &child);
    void stopProcess();
    void clearSecrets();
    void fail(const QString &text, const QString &why = {});
    void tearDown();
    void close(bool success);
    void cancel();
    void tick(const std::shared_ptr<ChildProcess> &child);
    bool mayResend() const;

    // Window (signin/sign_in_window.cpp)
    void buildWindow(QWidget *parent, const QString &proposed);
    void buildFields(QVBoxLayout *stack, const QString &proposed);
    void buildButtons(QVBoxLayout *stack);
    void enter(SignInStep step);
    void help();

    // Typing the password (signin/password_entry.cpp)
    void beginPassword();
    void endPassword();
    void enforceEnglish();
    void appResigned();
    void passwordEdited();

    const QString path;
    Completion completion;
    std::unique_ptr<InputSource> m_input;
    Clock m_now;
    std::optional<CoreDumpGuard> m_noCoreDumps{std::in_place}; // until the end

    // Session
    DialogueState m_dialogue;
    bool finished = false;
    FileDescriptor master;
    QString transcript; // since the last prompt that was recognised
    TerminalDecoder m_decoder;
    QString pendingAccount;
    SecretText pendingPassword;
    QString retryAccount;
    SecretText retryPassword;
    std::shared_ptr<ChildProcess> process;
    // Both are given up from within their own signals.
    std::unique_ptr<QTimer, QScopedPointerDeleteLater> timer;
    std::unique_ptr<QSocketNotifier, QScopedPointerDeleteLater> reader;
    std::chrono::steady_clock::time_point deadline;
    std::chrono::steady_clock::time_point resendAfter;

    // Typing the password
    bool passwordEditing = false;
    QString previousInput; // the user's own layout while passwordEditing; empty when it could not be read
    SecretText acceptedPassword;

    // Views, owned by the window, which the parent owns too
    QPointer<SignInWindow> window;
    QLineEdit *account = nullptr;
    ZarvoSecurePasswordField *password = nullptr;
    QLabel *keyboardNote = nullptr;
    SecretField *code = nullptr;
    QLabel *message = nullptr;
    QLabel *advice = nullptr; // what is wrong with the tool itself; hidden otherwise
    QPushButton *resendButton = nullptr;
    QPushButton *startButton = nullptr;
    QPushButton *codeButton = nullptr;
};
