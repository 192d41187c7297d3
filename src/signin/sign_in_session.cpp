#include "signin/sign_in_session.h"

#include "signin/sign_in_terminal.h"
#include "signin/sign_in_window.h"
#include "store/store_failure_messages.h"

#include <QCoreApplication>
#include <QLabel>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kStageLimit = 300s;
constexpr auto kResendDelay = 30s;
constexpr auto kWatchPeriod = 200ms;
constexpr auto kTerminationGrace = 2s;
constexpr size_t kPiece = 4096;
constexpr int kPiecesAtOnce = 32; // then the window gets its turn: about a millisecond

// A tool that is not wanted any more must not go on to store a session. It is asked first; the handle can
// signal no other process, however late.
void endChild(const std::shared_ptr<ChildProcess> &child)
{
    child->terminate();
    QTimer::singleShot(kTerminationGrace, QCoreApplication::instance(), [child] { child->kill(); });
}

} // namespace

LegacyAuth::LegacyAuth(QWidget *parent, const QString &executable, const QString &proposed, Completion done,
                       std::unique_ptr<InputSource> input, Clock clock)
    : path(executable)
    , completion(std::move(done))
    , m_input(std::move(input))
    , m_now(std::move(clock))
{
    buildWindow(parent, proposed);
}

LegacyAuth::~LegacyAuth()
{
    if (!finished && window)
        tearDown();
    stopProcess(); // also when the window has gone first, with the parent
    delete window.data();
}

QString LegacyAuth::typedAccount() const
{
    return account->text().trimmed();
}

void LegacyAuth::start()
{
    if (process)
        return;
    const QString name = typedAccount();
    if (!AreCredentials(name, password->secret().view())) {
        message->setText(u"Введите аккаунт и пароль латиницей без переносов строк."_s);
        return;
    }
    endPassword();
    retryAccount = name;
    retryPassword = password->secret().clone();
    launchWithAccount(retryAccount, retryPassword.clone());
}

void LegacyAuth::launchWithAccount(const QString &name, SecretText secret)
{
    pendingAccount = name;
    pendingPassword = std::move(secret);
    password->clearSecret();
    acceptedPassword.clear();
    code->clearSecret();
    transcript.clear();
    m_decoder = {};
    m_dialogue = {};
    advice->hide();
    enter(SignInStep::Waiting);

    Error error;
    std::optional<TerminalPair> terminal = OpenSilentTerminal(&error);
    if (!terminal)
        return fail(error.message);
    master = std::move(terminal->master);
    if (!startTool(terminal->slave, &error))
        return fail(
            u"Модуль входа не запустился на этом Mac. Проверьте версию системы и сборку приложения."_s,
            error.message);
    terminal->slave.reset();
    watch();
    deadline = m_now() + kStageLimit;
    resendAfter = m_now() + kResendDelay;
    message->setText(
        u"Подготовка входа… Первый вход может занять несколько минут. Запрос кода ещё не получен."_s);
}

// The terminal also becomes the one that controls the tool's session. Then prompts that go past standard
// input to /dev/tty are seen here as well, and closing our side hangs up on the tool and on whatever it
// started.
bool LegacyAuth::startTool(const FileDescriptor &slave, Error *error)
{
    ChildProcess::Options options;
    options.path = path;
    options.arguments = {u"--format"_s, u"json"_s, u"auth"_s, u"login"_s};
    options.input = options.output = options.error = slave.get();
    options.controllingTerminal = true;
    process = ChildProcess::start(options, error);
    return process != nullptr;
}

void LegacyAuth::watch()
{
    reader.reset(new QSocketNotifier(master.get(), QSocketNotifier::Read));
    connect(reader.get(), &QSocketNotifier::activated, this, &LegacyAuth::readAvailable);
    timer.reset(new QTimer);
    connect(timer.get(), &QTimer::timeout, this, [this, child = process] { tick(child); });
    timer->start(kWatchPeriod);
}

void LegacyAuth::tick(const std::shared_ptr<ChildProcess> &child)
{
    // Asked before reading: what an ended child has written is then read completely.
    const bool ended = !child->isRunning();
    const bool readAll = readAvailable();
    if (child != process)
        return; // what was read has ended the attempt
    if (ended && readAll)
        return finishProcess(child);
    if (deadline < m_now())
        return fail(u"Время ожидания входа истекло. Проверьте интернет и повторите попытку."_s,
                    m_dialogue.sentAccount ? QString() : MuteToolAdvice());
    resendButton->setEnabled(mayResend());
}

bool LegacyAuth::mayResend() const
{
    return m_dialogue.needsCode && resendAfter <= m_now();
}

bool LegacyAuth::send(QStringView text)
{
    const SecretBytes line = SecretLine(text);
    // The tool may have changed the terminal since; what is sent must not come back in what is read.
    if (master.isOpen() && SilenceTerminal(master.get()) && WriteLine(master.get(), line))
        return true;
    fail(u"Канал входа закрыт. Повторите попытку."_s);
    return false;
}

bool LegacyAuth::readAvailable()
{
    if (!master.isOpen())
        return true;
    std::array<char, kPiece> piece{};
    bool readAll = false;
    for (int count = 0; count < kPiecesAtOnce && !readAll; ++count) {
        const ssize_t size = ::read(master.get(), piece.data(), piece.size());
        if (size < 0 && errno == EINTR)
            continue;
        readAll = size <= 0;
        if (size == 0 || (size < 0 && errno != EAGAIN))
            hangUp();
        else if (size > 0)
            AppendToTranscript(transcript, m_decoder.decode(QByteArrayView(piece.data(), size)));
    }
    answer();
    return readAll;
}

// A terminal without another side is readable for ever and has nothing to read. The watchdog still looks at
// it: the tool may open its side again.
void LegacyAuth::hangUp()
{
    if (reader)
        reader->setEnabled(false);
}

// The transcript is emptied with each prompt, so that none is answered twice, and none that was printed
// before the tool could hear the answer.
void LegacyAuth::answer()
{
    switch (PromptIn(transcript, m_dialogue)) {
    case Prompt::None:
        return;
    case Prompt::Passphrase:
        return fail(
            u"Хранилище ключей недоступно. Включите связку ключей (Secret Service) и повторите вход."_s);
    case Prompt::Account:
        if (!send(pendingAccount))
            return;
        m_dialogue.sentAccount = true;
        pendingAccount.clear();
        break;
    case Prompt::Password:
        if (!send(pendingPassword.view()))
            return;
        m_dialogue.sentPassword = true;
        pendingPassword.clear();
        break;
    case Prompt::Code:
        askForCode();
        break;
    }
    transcript.clear();
}

void LegacyAuth::askForCode()
{
    m_dialogue.needsCode = true;
    enter(SignInStep::Code);
    deadline = m_now() + kStageLimit;
    message->setText(u"Введите код с доверенного устройства этого аккаунта. Повторный запрос перезапускает "
                     "вход; отдельная отправка SMS не поддерживается."_s);
}

void LegacyAuth::submit()
{
    const QStringView digits = code->secret().view().trimmed();
    if (!IsVerificationCode(digits)) {
        message->setText(u"Введите шестизначный код Apple."_s);
        return;
    }
    if (!send(digits))
        return;
    code->clearSecret();
    m_dialogue.needsCode = false;
    enter(SignInStep::Verifying);
    message->setText(u"Проверка кода…"_s);
    deadline = m_now() + kStageLimit;
}

void LegacyAuth::resend()
{
    if (!mayResend() || retryPassword.isEmpty())
        return;
    stopProcess();
    launchWithAccount(retryAccount, retryPassword.clone());
}

void LegacyAuth::finishProcess(const std::shared_ptr<ChildProcess> &child)
{
    if (child != process)
        return;
    const bool success = IsSignedIn(transcript, child->exitStatus().code);
    const QString reason = SignInFailure(transcript);
    const QString why = ForeignToolAdvice(transcript);
    if (!success)
        return fail(reason, why);
    stopProcess();
    clearSecrets();
    message->setText(u"Вход выполнен."_s);
    close(true);
}

void LegacyAuth::stopProcess()
{
    if (timer)
        timer->stop();
    timer.reset();
    hangUp(); // before its descriptor is closed and its number given to another
    reader.reset();
    if (process)
        endChild(process);
    process.reset();
    master.reset();
    transcript.clear();
    pendingAccount.clear();
    pendingPassword.clear();
}

void LegacyAuth::clearSecrets()
{
    retryPassword.clear();
    retryAccount.clear();
    acceptedPassword.clear();
    password->clearSecret();
    code->clearSecret();
}

void LegacyAuth::fail(const QString &text, const QString &why)
{
    stopProcess();
    clearSecrets();
    m_dialogue = {};
    enter(SignInStep::Editing);
    message->setText(text);
    advice->setText(why);
    advice->setVisible(!why.isEmpty());
}

void LegacyAuth::tearDown()
{
    finished = true;
    endPassword();
    stopProcess();
    clearSecrets();
    m_input->changed = {};
    m_noCoreDumps.reset();
    window->hide();
}

void LegacyAuth::close(bool success)
{
    if (finished)
        return;
    tearDown();
    if (const Completion done = std::exchange(completion, {}))
        done(success);
}

void LegacyAuth::cancel()
{
    close(false);
}
