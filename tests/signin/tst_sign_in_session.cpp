// The course of a sign-in on a real terminal, with a tool that plays its part and a clock that the test
// moves.
#include "signin/sign_in_fixture.h"
#include "support/rows.h"

#include <QFile>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Typing = Scenario::Typing;

namespace {

const QString kPreparing =
    u"Подготовка входа… Первый вход может занять несколько минут. Запрос кода ещё не получен."_s;
constexpr int kTick = 250; // more than the period of the watchdog, ms

} // namespace

class SignInSessionTest : public SignInTest
{
    Q_OBJECT

private Q_SLOTS:
    void signsIn_data()
    {
        const Rows<Typing, bool, QString, QString, QString> row; // …, with a code, log, account, password
        const QString log = u"{\"level\":\"info\",\"message\":\"Имя\"}\n"_s;
        row("canonical line, no code, Cyrillic account", Typing::Shown, false, {}, u"почта@пример.рф"_s,
            kPassword);
        row("echo off, with a code", Typing::Hidden, true, {}, kAccount, kPassword);
        row("raw with stars, log lines", Typing::Raw, true, log, kAccount, kPassword);
        // Longer than the kernel's line: only a terminal in raw mode carries it.
        row("longest input", Typing::Raw, false, {}, QString(1024, u'a'), QString(4096, u'p'));
    }

    void signsIn()
    {
        const auto &[typing, withCode, log, account, password] =
            Row<Typing, bool, QString, QString, QString>();
        {
            Scenario scenario = tool();
            scenario.when({u"--format", u"json", u"auth", u"login"}).prints(log).asks(kAccountPrompt);
            scenario.prints(log).asks(kPasswordPrompt, typing).prints(u"\r\n");
            if (withCode)
                scenario.asks(kCodePrompt).prints(u"\r\n");
            scenario.prints(kSuccess);
        }
        QVERIFY(m->open() && m->start(u"  %1 "_s.arg(account), password));
        QCOMPARE(m->message(), kPreparing);
        QCOMPARE(m->secret("password"), QString());
        for (const char *control : {"account", "password", "startButton"})
            QVERIFY2(!m->find<QWidget>(control)->isEnabled(), control);
        QStringList sent{account, password};
        if (withCode) {
            EVENTUALLY_EQUAL(m->message(), kEnterCode);
            QVERIFY(m->find<QLineEdit>("code")->hasFocus());
            m->submit(u" 123456 "_s);
            QCOMPARE(m->message(), u"Проверка кода…"_s);
            QCOMPARE(m->secret("code"), QString());
            QVERIFY(!m->find("codeButton")->isEnabled() && !m->find("resendButton")->isEnabled());
            sent.append(u"123456"_s);
        }
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
        QCOMPARE(m->message(), u"Вход выполнен."_s);
        QVERIFY(!m->window()->isVisible());
        QCOMPARE(m->linesRead(), sent);
    }

    // The password's prompt in one read with the account's is not answered; the one that comes later, in two
    // halves, is.
    void answersOnlyPromptsItHasSeen()
    {
        tool()
            .prints(u"enter password: ")
            .sleeps(100ms)
            .asks(QString(kAccountPrompt.toString() + u"\r\nenter password: "_s))
            .sleeps(100ms)
            .prints(u"\r\nenter pass")
            .sleeps(100ms)
            .asks(u"word: ", Typing::Raw)
            .prints(kSuccess);
        openAndStart();
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
        QCOMPARE(m->linesRead(), (QStringList{kAccount, kPassword}));
    }

    // The second question is put, by way of /dev/tty, only when the echo has been switched on by way of a
    // third program.
    void givesTheChildASilentTerminalAndNothingElse()
    {
        const QString asked = m->tools.filePath(u"asked"_s);
        const QString go = m->tools.filePath(u"go"_s);
        tool()
            .asks(kAccountPrompt)
            .touches(asked)
            .awaits(go)
            .promptsOnTerminal(kPasswordPrompt)
            .asks({})
            .prints(kSuccess);
        openAndStart();
        EVENTUALLY(QFile::exists(asked));
        const QJsonObject call = m->tools.events(u"ipatool"_s, u"call").value(0);
        QCOMPARE(call.value("session"_L1), call.value("pid"_L1));
        QVERIFY(call.value("ignored"_L1).toArray().isEmpty() && call.value("blocked"_L1).toArray().isEmpty());
        const QJsonObject descriptors = call.value("descriptors"_L1).toObject();
        QCOMPARE(descriptors.keys(), (QStringList{u"0"_s, u"1"_s, u"2"_s}));
        const QString name = descriptors.value("0"_L1).toString();
        for (const auto &other : descriptors)
            QCOMPARE(other.toString(), name);
        const int terminal = ::open(QFile::encodeName(name).constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const auto echo = [terminal](tcflag_t wanted) {
            termios attributes = {};
            const bool isKnown = ::tcgetattr(terminal, &attributes) == 0;
            const tcflag_t before = attributes.c_lflag & (ECHO | ECHONL);
            attributes.c_lflag |= wanted;
            return isKnown && ::tcsetattr(terminal, TCSANOW, &attributes) == 0 ? before : ECHO;
        };
        QCOMPARE(echo(ECHO), 0U);
        m->tools.touch(u"go"_s);
        EVENTUALLY_EQUAL(m->linesRead().size(), 2);
        QCOMPARE(echo(0), 0U);
        ::close(terminal);
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    }

    void takesTwoCodesAndRefusesOthers()
    {
        UntilCode(tool()).asks(kCodePrompt).prints(u"\r\n").asks(kCodePrompt).prints(kSuccess);
        openAndStart();
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
        for (const QString &code : {QString(), u"12345"_s, u"1234567"_s, u"12345a"_s, u"１２３４５６"_s}) {
            m->paste("code", code);
            m->press("codeButton");
            QCOMPARE(m->message(), u"Введите шестизначный код Apple."_s);
            QVERIFY(m->find("codeButton")->isEnabled());
        }
        m->now += 299s; // the limit starts anew with each question and each answer
        QTest::qWait(kTick);
        m->submit(u"000000"_s);
        EVENTUALLY_EQUAL(m->message(), kEnterCode); // the tool asks again
        QVERIFY(m->find("codeButton")->isEnabled());
        m->now += 299s;
        QTest::qWait(kTick);
        m->paste("code", u"123456\n"_s); // as it comes from another window
        QTest::keyClick(m->find<QLineEdit>("code"), Qt::Key_Enter);
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
        QCOMPARE(m->linesRead().mid(2), (QStringList{u"000000"_s, u"123456"_s}));
    }

    void requestsTheCodeAgain()
    {
        UntilCode(tool()).asks(kCodePrompt).prints(kSuccess);
        openAndStart();
        const QPushButton *resend = m->find("resendButton");
        for (int launch = 1; launch <= 2; ++launch) {
            EVENTUALLY_EQUAL(m->message(), kEnterCode);
            m->now += 30s - 1ms;
            QTest::qWait(kTick);
            QVERIFY(resend->isVisible() && !resend->isEnabled());
            m->now += 1ms;
            EVENTUALLY(resend->isEnabled());
            if (launch == 2)
                break;
            QVERIFY(m->find<QLineEdit>("code")->hasFocus());
            QTest::keyClick(m->window()->windowHandle(), Qt::Key_Tab);
            QVERIFY(resend->hasFocus());
            QTest::keyClick(m->window()->windowHandle(), Qt::Key_Space);
            QCOMPARE(m->message(), kPreparing);
            QVERIFY(!resend->isVisible());
        }
        QCOMPARE(m->linesRead(), (QStringList{kAccount, kPassword, kAccount, kPassword}));
        QCOMPARE(m->tools.calls(u"ipatool"_s).size(), 2);
        EVENTUALLY_EQUAL(m->running().size(), 1);
        m->submit(u"123456"_s);
        EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    }

    void cancels_data()
    {
        const Rows<QString> row; // what goes
        row("Escape: all processes end", {});
        row("the object goes: no word, all processes end", u"object"_s);
        row("the window goes first: no word, all processes end", u"window"_s);
    }

    // The tool ignores that its terminal is gone.
    void cancels()
    {
        const auto &[gone] = Row<QString>();
        UntilCode(tool().ignores(SIGHUP)).asks(kCodePrompt).sleeps(60s);
        openAndStart();
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
        m->type("code", u"123"_s);
        if (gone == "window"_L1)
            delete m->window();
        if (!gone.isEmpty())
            m->auth.reset();
        // The second time there is nothing to close.
        for (int times = 0; gone.isEmpty() && times < 2; ++times) {
            QTest::keyClick(m->window(), Qt::Key_Escape);
            QVERIFY(!m->window()->isVisible());
            QCOMPARE(m->secret("password") + m->secret("code"), QString());
        }
        QCOMPARE(m->outcomes, gone.isEmpty() ? QList{false} : QList<bool>{});
        EVENTUALLY(m->running().isEmpty());
    }

    // A tool that has closed its terminal and lives on leaves one that is readable for ever.
    void hangUpDoesNotSpin()
    {
        (void)tool(); // makes the folder
        QFile script(m->tools.toolPath(u"ipatool"_s));
        QVERIFY(script.remove() && script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nexec sleep 60 0<&- 1>&- 2>&-\n");
        script.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
        script.close();
        openAndStart();
        QTest::qWait(200);
        const auto before = std::clock(); // does not count what else the machine was busy with
        QTest::qWait(400);
        QVERIFY2(std::clock() - before < 150 * CLOCKS_PER_SEC / 1000, "the window kept turning for nothing");
        QVERIFY(!m->running().isEmpty());
    }
};

QTEST_MAIN(SignInSessionTest)
#include "tst_sign_in_session.moc"
