// The sign-in when something fails: the tool, the terminal, the time, the input.
#include "signin/sign_in_fixture.h"

#include <dlfcn.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// How many calls still succeed before one fails; negative: all do.
int terminals = -1;
int attributesReadable = -1;
int attributesWritable = -1;
std::optional<ssize_t> terminalTakes; // bytes of the next line; negative: an error

bool isMaster(int descriptor)
{
    std::array<char, 64> name{};
    return ::ptsname_r(descriptor, name.data(), name.size()) == 0;
}

bool refuses(int &left)
{
    if (left < 0)
        return false;
    if (left > 0) {
        --left;
        return false;
    }
    errno = EIO;
    return true;
}

using Script = std::function<void(Scenario &)>;

// The tool up to its question for the code, and `printed` as the answer to it.
Script afterCode(const QString &printed, int status)
{
    return [printed, status](Scenario &tool) {
        UntilCode(tool).asks(kCodePrompt).prints(u"\r\n").prints(printed);
        if (status < 0)
            tool.raises(-status);
        else
            tool.exits(status);
    };
}

} // namespace

// The linker prefers these to the C library's.
extern "C" int openpty(int *master, int *slave, char *name, const termios *attributes,
                       const winsize *size) noexcept
{
    using Function = int (*)(int *, int *, char *, const termios *, const winsize *);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "openpty"));
    return refuses(terminals) ? -1 : real(master, slave, name, attributes, size);
}

extern "C" int tcgetattr(int descriptor, termios *attributes) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int, termios *)>(::dlsym(RTLD_NEXT, "tcgetattr"));
    return refuses(attributesReadable) ? -1 : real(descriptor, attributes);
}

extern "C" int tcsetattr(int descriptor, int when, const termios *attributes) noexcept
{
    static const auto real =
        reinterpret_cast<int (*)(int, int, const termios *)>(::dlsym(RTLD_NEXT, "tcsetattr"));
    return refuses(attributesWritable) ? -1 : real(descriptor, when, attributes);
}

extern "C" ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, const void *, size_t)>(::dlsym(RTLD_NEXT, "write"));
    if (!terminalTakes || !isMaster(descriptor))
        return real(descriptor, bytes, size);
    errno = EAGAIN;
    return *terminalTakes < 0 ? -1 : real(descriptor, bytes, static_cast<size_t>(*terminalTakes));
}

class SignInFailuresTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m = std::make_unique<SignIn>(); }
    void cleanup();

    void failsAndCanBeRepeated_data();
    void failsAndCanBeRepeated();
    void refusesInput();
    void timeRunsOut_data();
    void timeRunsOut();

private:
    static void put(const QString &obstacle);

    std::unique_ptr<SignIn> m;
};

void SignInFailuresTest::cleanup()
{
    m.reset();
    EVENTUALLY(OwnChildren().isEmpty());
}

void SignInFailuresTest::failsAndCanBeRepeated_data()
{
    QTest::addColumn<QString>("obstacle"); // what fails on this side, and where
    QTest::addColumn<Script>("script");    // empty: there is no tool
    QTest::addColumn<QString>("message");
    const auto row = [](const char *name, const QString &obstacle, const Script &script,
                        const QString &message) { QTest::newRow(name) << obstacle << script << message; };
    const Script asks = afterCode({}, 0);
    row("no terminal to be had", u"open"_s, asks, u"Не удалось открыть защищённый канал входа."_s);
    row("terminal's attributes not readable", u"get"_s, asks, u"Не удалось настроить канал входа."_s);
    row("terminal's attributes not writable", u"set"_s, asks, u"Не удалось отключить эхо пароля."_s);
    row("no tool", {}, {},
        u"Модуль входа не запустился на этом Mac. Проверьте версию системы и сборку приложения."_s);
    row(
        "key store without its service", {},
        [](Scenario &tool) {
            tool.asks(u"enter passphrase to unlock \"/home/a/k\" (not your Apple ID's): ");
        },
        u"Хранилище ключей недоступно. Включите связку ключей (Secret Service) и повторите вход."_s);

    const QString closed = u"Канал входа закрыт. Повторите попытку."_s;
    row("account not taken", u"write -1"_s, asks, closed);
    row("account taken in part", u"write 3"_s, asks, closed);
    row("code taken without its line feed", u"write 6 of the code"_s, asks, closed);

    const QString other = u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s;
    row("status 0, no word of success", {}, afterCode(u"{\"level\":\"info\"}\n"_s, 0), other);
    row("success, but status 1", {}, afterCode(kSuccess.toString(), 1), other);
    row("success, but killed", {}, afterCode(kSuccess.toString(), -SIGKILL), other);
    row("stale code, several lines", {},
        afterCode(u"{\"level\":\"warn\"}\n{\"error\":\"try a fresh 2FA code\",\"success\":false}\n"_s, 1),
        u"Apple не приняла код. Повторите вход со свежим кодом."_s);
}

void SignInFailuresTest::put(const QString &obstacle)
{
    terminals = obstacle == "open"_L1 ? 0 : -1;
    attributesReadable = obstacle == "get"_L1 ? 0 : -1;
    attributesWritable = obstacle == "set"_L1 ? 0 : -1;
    terminalTakes.reset();
    if (obstacle.startsWith(u"write"))
        terminalTakes = obstacle.section(u' ', 1, 1).toInt();
}

void SignInFailuresTest::failsAndCanBeRepeated()
{
    QFETCH(QString, obstacle);
    QFETCH(Script, script);
    const bool atCode = obstacle.endsWith(u"code");
    if (script) {
        Scenario tool = m->tools.add(u"ipatool"_s);
        script(tool);
    }
    QVERIFY(m->open());
    const qsizetype descriptors = OwnDescriptorCount();
    put(atCode ? QString() : obstacle);
    QVERIFY(m->start());
    EVENTUALLY(m->isEditing() || m->find<QLineEdit>("code")->isVisible());
    if (!m->isEditing()) {
        if (atCode)
            put(obstacle);
        m->submit(u"654321"_s);
        EVENTUALLY(m->isEditing());
    }
    put({});
    QTEST(m->message(), "message");
    QVERIFY(m->outcomes.isEmpty());
    QCOMPARE(m->find<QLineEdit>("account")->text(), kAccount);
    QCOMPARE(m->secret("password") + m->secret("code"), QString());
    EVENTUALLY(m->running().isEmpty());
    EVENTUALLY_EQUAL(OwnDescriptorCount(), descriptors);
    QVERIFY(m->linesRead().size() <= (atCode ? 2 : 3));

    // The next attempt starts from nothing.
    m->tools.add(u"ipatool"_s).asks(kAccountPrompt).asks(kPasswordPrompt).prints(kSuccess);
    m->paste("password", kPassword);
    QTest::keyClick(m->window(), Qt::Key_Return);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
}

void SignInFailuresTest::refusesInput()
{
    m->tools.add(u"ipatool"_s).asks(kAccountPrompt);
    QVERIFY(m->open());
    const std::pair<QString, QString> inputs[] = {
        {u"   "_s, kPassword}, {kAccount, {}}, {kAccount, QString(4097, u'p')}};
    for (const auto &[account, password] : inputs) {
        QVERIFY(m->start(account, password));
        QCOMPARE(m->message(), u"Введите аккаунт и пароль латиницей без переносов строк."_s);
        QVERIFY(m->isEditing());
        QCOMPARE(m->secret("password"), password); // nothing else changes
        m->find<QLabel>("message")->clear();
    }
    QVERIFY(m->tools.calls(u"ipatool"_s).isEmpty());
}

void SignInFailuresTest::timeRunsOut_data()
{
    QTest::addColumn<int>("questions"); // that the tool asks before it falls silent
    QTest::newRow("before the account's question") << 0;
    QTest::newRow("before the password's question") << 1;
    QTest::newRow("after the password") << 2;
    QTest::newRow("while the code is awaited") << 3;
    QTest::newRow("while the code is checked") << 4;
}

void SignInFailuresTest::timeRunsOut()
{
    QFETCH(int, questions);
    {
        Scenario scenario = m->tools.add(u"ipatool"_s);
        scenario.when({u"login"});
        if (questions > 0)
            scenario.asks(kAccountPrompt);
        if (questions > 1)
            scenario.asks(kPasswordPrompt, Scenario::Typing::Raw);
        if (questions > 2)
            scenario.asks(kCodePrompt);
        scenario.sleeps(60s);
    }
    QVERIFY(m->open() && m->start());
    EVENTUALLY_EQUAL(m->linesRead().size(), std::min(questions, 2));
    if (questions > 2)
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
    if (questions > 3) {
        m->submit(u"123456"_s);
        EVENTUALLY_EQUAL(m->linesRead().size(), 3);
    }
    m->now += 300s;
    QTest::qWait(300);
    QVERIFY(!m->isEditing()); // it is up after the limit, not at it
    m->now += 1ms;
    EVENTUALLY_EQUAL(m->message(),
                     u"Время ожидания входа истекло. Проверьте интернет и повторите попытку."_s);
    QVERIFY(m->isEditing());
    EVENTUALLY(m->running().isEmpty());
}

QTEST_MAIN(SignInFailuresTest)
#include "tst_sign_in_failures.moc"
