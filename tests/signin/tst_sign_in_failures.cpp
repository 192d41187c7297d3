// The sign-in when something fails: the tool, the terminal, the time, the input.
#include "signin/sign_in_fixture.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Typing = Scenario::Typing;

namespace {

// How many calls still succeed before one fails; negative: all do.
int attributesReadable = -1;
int attributesWritable = -1;
std::optional<ssize_t> terminalTakes; // bytes of the next line; negative: an error

bool isMaster(int descriptor)
{
    std::array<char, 64> name;
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

const QString kClosed = u"Канал входа закрыт. Повторите попытку."_s;
const QString kTimeIsUp = u"Время ожидания входа истекло. Проверьте интернет и повторите попытку."_s;

} // namespace

// The linker prefers these to the C library's.
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

    void endsWithAReason_data();
    void endsWithAReason();
    void doesNotStart_data();
    void doesNotStart();
    void refusesInput();
    void channelClosed_data();
    void channelClosed();
    void timeRunsOut_data();
    void timeRunsOut();

private:
    Scenario tool() { return m->tools.add(u"ipatool"_s); }
    void openAndStart()
    {
        QVERIFY(m->open());
        m->start();
    }

    std::unique_ptr<SignIn> m;
};

void SignInFailuresTest::cleanup()
{
    m.reset();
    attributesReadable = attributesWritable = -1;
    terminalTakes.reset();
    EVENTUALLY(OwnChildren().isEmpty());
}

void SignInFailuresTest::endsWithAReason_data()
{
    QTest::addColumn<QString>("printed");
    QTest::addColumn<int>("status"); // negative: a signal
    QTest::addColumn<QString>("message");
    const QString other = u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s;
    QTest::newRow("no word of success") << u"{\"level\":\"info\"}\n"_s << 0 << other;
    QTest::newRow("success, but status 1") << kSuccess.toString() << 1 << other;
    QTest::newRow("crash") << u"panic: runtime error\n"_s << 2 << other;
    QTest::newRow("killed") << kSuccess.toString() << -SIGKILL << other;
    QTest::newRow("stale code")
        << u"{\"error\":\"apple did not complete verification; try a fresh 2FA code\",\"success\":false}\n"_s
        << 1 << u"Apple не приняла код. Повторите вход со свежим кодом."_s;
    QTest::newRow("too often") << u"{\"error\":\"status 429\",\"success\":false}\n"_s << 1
                               << u"Apple отклонила запрос или ограничила частоту входов. Повторите позже."_s;
    QTest::newRow("store locked")
        << u"{\"error\":\"open: operation not permitted\",\"success\":false}\n"_s << 1
        << u"Хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."_s;
}

void SignInFailuresTest::endsWithAReason()
{
    QFETCH(QString, printed);
    QFETCH(int, status);
    {
        Scenario scenario = tool();
        UntilCode(scenario).asks(kCodePrompt).prints(u"\r\n").prints(printed);
        if (status < 0)
            scenario.raises(-status);
        else
            scenario.exits(status);
    }
    openAndStart();
    EVENTUALLY_EQUAL(m->message(), kEnterCode);
    m->type("code", u"654321"_s);
    QTest::keyClick(m->window(), Qt::Key_Return);
    EVENTUALLY(m->isEditing());
    QTEST(m->message(), "message");
    QVERIFY(m->outcomes.isEmpty());
    QCOMPARE(m->find<QLineEdit>("account")->text(), kAccount);
    QCOMPARE(m->secret("password") + m->secret("code"), QString());

    // The next attempt starts from nothing.
    tool().asks(kAccountPrompt).asks(kPasswordPrompt).prints(kSuccess);
    m->paste("password", kPassword);
    QTest::keyClick(m->window(), Qt::Key_Return);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
}

void SignInFailuresTest::doesNotStart_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("message");
    QTest::newRow("no descriptor left")
        << u"descriptors"_s << u"Не удалось открыть защищённый канал входа."_s;
    QTest::newRow("attributes not readable") << u"get"_s << u"Не удалось настроить канал входа."_s;
    QTest::newRow("attributes not writable") << u"set"_s << u"Не удалось отключить эхо пароля."_s;
    QTest::newRow("no tool")
        << u"tool"_s
        << u"Модуль входа не запустился на этом Mac. Проверьте версию системы и сборку приложения."_s;
    QTest::newRow("key store without its service")
        << u"passphrase"_s
        << u"Хранилище ключей недоступно. Включите связку ключей (Secret Service) и повторите вход."_s;
}

void SignInFailuresTest::doesNotStart()
{
    QFETCH(QString, obstacle);
    if (obstacle != "tool"_L1)
        tool().asks(u"enter passphrase to unlock \"/home/a/.ipatool/keychain\" (not your Apple ID's): ");
    QVERIFY(m->open());
    const qsizetype descriptors = OwnDescriptorCount();
    rlimit limit = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (obstacle == "descriptors"_L1) {
        const rlimit tight{3, limit.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    }
    attributesReadable = obstacle == "get"_L1 ? 0 : -1;
    attributesWritable = obstacle == "set"_L1 ? 0 : -1;
    m->start();
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EVENTUALLY(m->isEditing());
    QTEST(m->message(), "message");
    QCOMPARE(m->secret("password"), QString());
    QVERIFY(m->linesRead().isEmpty());
    EVENTUALLY(m->running().isEmpty());
    EVENTUALLY_EQUAL(OwnDescriptorCount(), descriptors);
}

void SignInFailuresTest::refusesInput()
{
    tool().asks(kAccountPrompt);
    QVERIFY(m->open());
    const QString refusal = u"Введите аккаунт и пароль латиницей без переносов строк."_s;
    m->start(u"   "_s, kPassword);
    QCOMPARE(m->message(), refusal);
    QVERIFY(m->isEditing());
    QCOMPARE(m->secret("password"), kPassword); // nothing else changes
    m->start(kAccount, {});
    QCOMPARE(m->message(), refusal);
    m->start(kAccount, QString(4097, u'p'));
    QCOMPARE(m->message(), refusal);
    QVERIFY(m->tools.calls(u"ipatool"_s).isEmpty());
}

void SignInFailuresTest::channelClosed_data()
{
    QTest::addColumn<bool>("atCode");
    QTest::addColumn<int>("takes");
    QTest::newRow("account not taken") << false << -1;
    QTest::newRow("account taken in part") << false << 3;
    QTest::newRow("code taken without its line feed") << true << 6;
}

void SignInFailuresTest::channelClosed()
{
    QFETCH(bool, atCode);
    QFETCH(int, takes);
    {
        Scenario scenario = tool();
        UntilCode(scenario).asks(kCodePrompt).prints(kSuccess);
    }
    if (!atCode)
        terminalTakes = takes;
    openAndStart();
    if (atCode) {
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
        terminalTakes = takes;
        m->type("code", u"123456"_s);
        m->press("codeButton");
    }
    EVENTUALLY(m->isEditing());
    QCOMPARE(m->message(), kClosed);
    QCOMPARE(m->secret("code"), QString());
    EVENTUALLY(m->running().isEmpty());
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
        Scenario scenario = tool();
        scenario.when({u"login"});
        if (questions > 0)
            scenario.asks(kAccountPrompt);
        if (questions > 1)
            scenario.asks(kPasswordPrompt, Typing::Raw);
        if (questions > 2)
            scenario.asks(kCodePrompt);
        scenario.sleeps(60s);
    }
    openAndStart();
    EVENTUALLY_EQUAL(m->linesRead().size(), std::min(questions, 2));
    if (questions > 2)
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
    if (questions > 3) {
        m->type("code", u"123456"_s);
        m->press("codeButton");
        EVENTUALLY_EQUAL(m->linesRead().size(), 3);
    }
    m->now += 300s;
    QTest::qWait(500);
    QVERIFY(m->message() != kTimeIsUp); // it is up after the limit, not at it
    m->now += 1ms;
    EVENTUALLY_EQUAL(m->message(), kTimeIsUp);
    QVERIFY(m->isEditing());
    EVENTUALLY(m->running().isEmpty());
}

QTEST_MAIN(SignInFailuresTest)
#include "tst_sign_in_failures.moc"
