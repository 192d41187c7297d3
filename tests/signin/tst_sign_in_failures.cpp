// The sign-in when something fails: the tool, the terminal, the time, the input.
#include "signin/sign_in_fixture.h"
#include "support/rows.h"

#include <dlfcn.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// What fails on this side. The last three: a line that the terminal does not take, or not whole.
enum Obstacle { None, OpenTerminal, ReadAttributes, WriteAttributes, TakeLine, TakeWholeLine, TakeWholeCode };
std::atomic<Obstacle> obstacle = None;
constexpr size_t kPartOfLine = 6; // bytes: a code without its line feed

bool isRefused(Obstacle call)
{
    errno = EIO;
    return obstacle == call;
}

template <typename Function>
Function next(Function, const char *name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

using Script = std::function<void(Scenario &)>;

// The tool up to its question for the code, and `printed` as the answer to it.
Script afterCode(const QString &printed, int status)
{
    return [printed, status](Scenario &tool) {
        UntilCode(tool).asks(kCodePrompt).prints(u"\r\n").prints(printed);
        status < 0 ? tool.raises(-status) : tool.exits(status);
    };
}

} // namespace

// The linker prefers these to the C library's.
extern "C" int openpty(int *master, int *slave, char *name, const termios *attributes,
                       const winsize *size) noexcept
{
    static const auto real = next(&::openpty, "openpty");
    return isRefused(OpenTerminal) ? -1 : real(master, slave, name, attributes, size);
}

extern "C" int tcgetattr(int descriptor, termios *attributes) noexcept
{
    static const auto real = next(&::tcgetattr, "tcgetattr");
    return isRefused(ReadAttributes) ? -1 : real(descriptor, attributes);
}

extern "C" int tcsetattr(int descriptor, int when, const termios *attributes) noexcept
{
    static const auto real = next(&::tcsetattr, "tcsetattr");
    return isRefused(WriteAttributes) ? -1 : real(descriptor, when, attributes);
}

extern "C" ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto real = next(&::write, "write");
    std::array<char, 64> name{};
    if (obstacle < TakeLine || ::ptsname_r(descriptor, name.data(), name.size()) != 0) // no terminal's
        return real(descriptor, bytes, size);
    errno = EAGAIN;
    return obstacle == TakeLine ? -1 : real(descriptor, bytes, kPartOfLine);
}

class SignInFailuresTest : public SignInTest
{
    Q_OBJECT

private Q_SLOTS:
    void failsAndCanBeRepeated_data()
    {
        const Rows<Obstacle, Script, QString> row; // …, the tool (empty: there is none), the message
        const Script asks = afterCode({}, 0);
        row("no terminal to be had", OpenTerminal, asks, u"Не удалось открыть защищённый канал входа."_s);
        row("terminal's attributes not readable", ReadAttributes, asks,
            u"Не удалось настроить канал входа."_s);
        row("terminal's attributes not writable", WriteAttributes, asks,
            u"Не удалось отключить эхо пароля."_s);
        row("no tool", None, {},
            u"Модуль входа не запустился на этом Mac. Проверьте версию системы и сборку приложения."_s);
        const Script locked = [](Scenario &tool) {
            tool.asks(u"enter passphrase to unlock \"/home/a/k\" (not your Apple ID's): ");
        };
        row("key store without its service", None, locked,
            u"Хранилище ключей недоступно. Включите связку ключей (Secret Service) и повторите вход."_s);

        const QString closed = u"Канал входа закрыт. Повторите попытку."_s;
        row("account not taken", TakeLine, asks, closed);
        row("account taken in part", TakeWholeLine, asks, closed);
        row("code taken without its line feed", TakeWholeCode, asks, closed);

        const QString other =
            u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s;
        row("status 0, no word of success", None, afterCode(u"{\"level\":\"info\"}\n"_s, 0), other);
        row("success, but status 1", None, afterCode(kSuccess.toString(), 1), other);
        row("success, but killed", None, afterCode(kSuccess.toString(), -SIGKILL), other);
        row("stale code, several lines", None,
            afterCode(u"{\"level\":\"warn\"}\n{\"error\":\"try a fresh 2FA code\",\"success\":false}\n"_s, 1),
            u"Apple не приняла код. Повторите вход со свежим кодом."_s);
    }

    void failsAndCanBeRepeated()
    {
        const auto &[ours, script, message] = Row<Obstacle, Script, QString>();
        if (script) {
            Scenario scenario = tool();
            script(scenario);
        }
        QVERIFY(m->open());
        obstacle = ours == TakeWholeCode ? None : ours;
        QVERIFY(m->start());
        EVENTUALLY(m->isEditing() || m->find<QLineEdit>("code")->isVisible());
        if (!m->isEditing()) {
            obstacle = ours;
            m->submit(u"654321"_s);
            EVENTUALLY(m->isEditing());
        }
        obstacle = None;
        QCOMPARE(m->message(), message);
        QVERIFY(m->outcomes.isEmpty());
        QCOMPARE(m->find<QLineEdit>("account")->text(), kAccount);
        QCOMPARE(m->secret("password") + m->secret("code"), QString());
        QVERIFY(m->find<QLineEdit>("password")->hasFocus());
        QCOMPARE(m->keyboard->inUse, u"us"_s);
        EVENTUALLY(m->running().isEmpty());
        QVERIFY(m->linesRead().size() <= (ours == TakeWholeCode ? 2 : 3));

        // The next attempt starts from nothing.
        tool().asks(kAccountPrompt).asks(kPasswordPrompt).prints(kSuccess);
        m->paste("password", kPassword);
        QTest::keyClick(m->window(), Qt::Key_Return);
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    }

    void timeRunsOut_data()
    {
        const Rows<int> row; // the questions that the tool asks before it falls silent
        row("before the account's question", 0);
        row("before the password's question", 1);
        row("after the password", 2);
        row("while the code is awaited", 3);
        row("while the code is checked", 4);
    }

    void timeRunsOut()
    {
        const auto &[questions] = Row<int>();
        {
            Scenario scenario = tool();
            scenario.when({u"login"});
            constexpr std::array prompts{kAccountPrompt, kPasswordPrompt, kCodePrompt};
            for (int i = 0; i < std::min(questions, 3); ++i)
                scenario.asks(prompts.at(static_cast<size_t>(i)));
            scenario.sleeps(60s);
        }
        openAndStart();
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
};

QTEST_MAIN(SignInFailuresTest)
#include "tst_sign_in_failures.moc"
