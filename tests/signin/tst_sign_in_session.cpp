// The sign-in on a real terminal, with a tool that plays its part and a clock that the test moves.
#include "signin/processor_time.h"
#include "signin/sign_in_fixture.h"

#include <QDir>
#include <QFile>
#include <QTimer>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Typing = Scenario::Typing;

namespace {

const QString kPreparing =
    u"Подготовка входа… Первый вход может занять несколько минут. Запрос кода ещё не получен."_s;

} // namespace

class SignInSessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void signsIn_data();
    void signsIn();
    void childGetsTheTerminalAndNothingElse();
    void longestPasswordArrives();
    void answersOnlyPromptsItHasSeen();
    void silencesATerminalThatEchoesAgain();

    void refusesCodes();
    void asksForTheCodeAgain();
    void requestsTheCodeAgain();

    void cancels_data();
    void cancels();
    void noiseDoesNotStopTheWindow();
    void hangUpDoesNotSpin();
    void leavesNothingBehind();

private:
    Scenario tool() { return m->tools.add(u"ipatool"_s); }
    void openAndStart()
    {
        QVERIFY(m->open());
        m->start();
    }

    std::unique_ptr<SignIn> m;
};

void SignInSessionTest::init()
{
    m = std::make_unique<SignIn>();
}

void SignInSessionTest::cleanup()
{
    m.reset();
    EVENTUALLY(OwnChildren().isEmpty());
}

void SignInSessionTest::signsIn_data()
{
    QTest::addColumn<Typing>("typing");
    QTest::addColumn<bool>("withCode");
    QTest::addColumn<QString>("before");
    QTest::newRow("canonical line, no code") << Typing::Shown << false << QString();
    QTest::newRow("echo off, with a code") << Typing::Hidden << true << QString();
    QTest::newRow("raw with stars, with a code, log lines")
        << Typing::Raw << true << u"{\"level\":\"info\",\"message\":\"Имя\"}\n"_s;
}

void SignInSessionTest::signsIn()
{
    QFETCH(Typing, typing);
    QFETCH(bool, withCode);
    QFETCH(QString, before);
    {
        Scenario scenario = tool();
        scenario.when({u"--format", u"json", u"auth", u"login"}).prints(before);
        scenario.asks(kAccountPrompt).prints(before).asks(kPasswordPrompt, typing).prints(u"\r\n");
        if (withCode)
            scenario.asks(kCodePrompt).prints(u"\r\n");
        scenario.prints(kSuccess);
    }
    QVERIFY(m->open());
    m->start(u"  "_s + kAccount + u" "_s, kPassword);
    QCOMPARE(m->message(), kPreparing);
    QCOMPARE(m->secret("password"), QString());
    for (const char *control : {"account", "password", "startButton"})
        QVERIFY2(!m->find<QWidget>(control)->isEnabled(), control);
    if (withCode) {
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
        QVERIFY(m->find<QLineEdit>("code")->hasFocus());
        m->type("code", u" 123456 "_s);
        m->press("codeButton");
        QCOMPARE(m->message(), u"Проверка кода…"_s);
        QCOMPARE(m->secret("code"), QString());
        QVERIFY(!m->find("codeButton")->isEnabled() && !m->find("resendButton")->isEnabled());
    }
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    QCOMPARE(m->message(), u"Вход выполнен."_s);
    QVERIFY(!m->window()->isVisible());
    const QStringList sent{kAccount, kPassword};
    QCOMPARE(m->linesRead(), withCode ? sent + QStringList{u"123456"_s} : sent);
}

void SignInSessionTest::childGetsTheTerminalAndNothingElse()
{
    tool().when({u"login"}).promptsOnTerminal(u"enter 2FA code: ").sleeps(60s);
    openAndStart();
    EVENTUALLY_EQUAL(m->message(), kEnterCode); // a prompt that goes to /dev/tty is seen, too
    const QJsonObject call = m->tools.events(u"ipatool"_s, u"call").value(0);
    const QJsonObject descriptors = call.value("descriptors"_L1).toObject();
    QCOMPARE(descriptors.keys(), (QStringList{u"0"_s, u"1"_s, u"2"_s}));
    for (const QString &number : descriptors.keys())
        QVERIFY(descriptors.value(number).toString().startsWith(u"/dev/pts/"_s));
    QCOMPARE(m->tools.calls(u"ipatool"_s),
             (QList<QStringList>{{u"--format"_s, u"json"_s, u"auth"_s, u"login"_s}}));
    QCOMPARE(call.value("session"_L1), call.value("pid"_L1));
    QVERIFY(call.value("ignored"_L1).toArray().isEmpty() && call.value("blocked"_L1).toArray().isEmpty());
}

// Longer than the kernel's line, so only a terminal in raw mode carries it.
void SignInSessionTest::longestPasswordArrives()
{
    tool().asks(kAccountPrompt).asks(kPasswordPrompt, Typing::Raw).prints(kSuccess);
    QVERIFY(m->open());
    const QString password(4096, u'p');
    m->start(QString(1024, u'a'), password);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    QCOMPARE(m->linesRead(), (QStringList{QString(1024, u'a'), password}));
}

void SignInSessionTest::answersOnlyPromptsItHasSeen()
{
    // The password's prompt in one read with the account's is not answered; the one that comes later, in two
    // halves, is.
    tool()
        .prints(u"enter password: ")
        .sleeps(300ms)
        .asks(QString(kAccountPrompt.toString() + u"\r\nenter password: "_s))
        .sleeps(300ms)
        .prints(u"\r\nenter pass")
        .sleeps(300ms)
        .asks(u"word: ", Typing::Raw)
        .prints(kSuccess);
    openAndStart();
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    QCOMPARE(m->linesRead(), (QStringList{kAccount, kPassword}));
}

void SignInSessionTest::silencesATerminalThatEchoesAgain()
{
    // The second question is put only when the tool has switched the echo on by way of a third program.
    tool()
        .asks(kAccountPrompt)
        .touches(m->tools.filePath(u"asked"_s))
        .awaits(m->tools.filePath(u"go"_s))
        .asks(kPasswordPrompt)
        .prints(kSuccess);
    openAndStart();
    EVENTUALLY(QFile::exists(m->tools.filePath(u"asked"_s)));
    const QJsonObject call = m->tools.events(u"ipatool"_s, u"call").value(0);
    const QString name = call.value("descriptors"_L1).toObject().value("0"_L1).toString();
    const int terminal = ::open(QFile::encodeName(name).constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios attributes = {};
    QVERIFY(terminal >= 0 && ::tcgetattr(terminal, &attributes) == 0);
    QCOMPARE(attributes.c_lflag & (ECHO | ECHONL), 0U);
    attributes.c_lflag |= ECHO;
    QCOMPARE(::tcsetattr(terminal, TCSANOW, &attributes), 0);
    m->tools.touch(u"go"_s);
    EVENTUALLY_EQUAL(m->linesRead().size(), 2);
    QCOMPARE(::tcgetattr(terminal, &attributes), 0);
    QCOMPARE(attributes.c_lflag & (ECHO | ECHONL), 0U);
    ::close(terminal);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
}

void SignInSessionTest::refusesCodes()
{
    {
        Scenario scenario = tool();
        UntilCode(scenario).asks(kCodePrompt).prints(kSuccess);
    }
    openAndStart();
    EVENTUALLY_EQUAL(m->message(), kEnterCode);
    for (const QString &code :
         {QString(), u"12345"_s, u"1234567"_s, u"12345a"_s, u"１２３４５６"_s, u"12 456"_s}) {
        m->paste("code", code);
        m->press("codeButton");
        QCOMPARE(m->message(), u"Введите шестизначный код Apple."_s);
        QVERIFY(m->find("codeButton")->isEnabled());
    }
    m->paste("code", u"123456\n"_s); // as it comes from another window
    QTest::keyClick(m->find<QLineEdit>("code"), Qt::Key_Enter);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    QCOMPARE(m->linesRead().last(), u"123456"_s);
}

void SignInSessionTest::asksForTheCodeAgain()
{
    {
        Scenario scenario = tool();
        UntilCode(scenario).asks(kCodePrompt).prints(u"\r\n").asks(kCodePrompt).prints(kSuccess);
    }
    openAndStart();
    for (const QString &code : {u"000000"_s, u"123456"_s}) {
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
        QVERIFY(m->find("codeButton")->isEnabled());
        m->now += 299s; // the limit starts anew with each question and each answer
        QTest::qWait(500);
        QCOMPARE(m->message(), kEnterCode);
        m->type("code", code);
        m->press("codeButton");
    }
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
}

void SignInSessionTest::requestsTheCodeAgain()
{
    {
        Scenario scenario = tool();
        UntilCode(scenario).asks(kCodePrompt).prints(kSuccess);
    }
    openAndStart();
    EVENTUALLY_EQUAL(m->message(), kEnterCode);
    const QPushButton *resend = m->find("resendButton");
    for (int launch = 1; launch <= 2; ++launch) {
        QTest::qWait(500);
        QVERIFY(resend->isVisible() && !resend->isEnabled());
        m->now += 29s;
        QTest::qWait(500);
        QVERIFY(!resend->isEnabled());
        m->now += 1s;
        EVENTUALLY(resend->isEnabled());
        if (launch == 2)
            break;
        m->press("resendButton");
        QCOMPARE(m->message(), kPreparing);
        QVERIFY(!resend->isVisible());
        EVENTUALLY_EQUAL(m->message(), kEnterCode);
    }
    QCOMPARE(m->linesRead(), (QStringList{kAccount, kPassword, kAccount, kPassword}));
    QCOMPARE(m->tools.calls(u"ipatool"_s).size(), 2);
    EVENTUALLY_EQUAL(m->running().size(), 1);
    m->type("code", u"123456"_s);
    m->press("codeButton");
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
}

void SignInSessionTest::cancels_data()
{
    QTest::addColumn<bool>("stubborn");
    QTest::addColumn<bool>("destroyed");
    QTest::newRow("Escape") << false << false;
    QTest::newRow("a tool that ignores every polite signal") << true << false;
    QTest::newRow("the object goes") << false << true;
}

void SignInSessionTest::cancels()
{
    QFETCH(bool, stubborn);
    QFETCH(bool, destroyed);
    {
        Scenario scenario = tool();
        scenario.when({u"login"});
        if (stubborn)
            scenario.ignoresTermination().ignores(SIGHUP);
        UntilCode(scenario).leavesGrandchild(60s).asks(kCodePrompt).sleeps(60s);
    }
    openAndStart();
    EVENTUALLY_EQUAL(m->message(), kEnterCode);
    m->type("code", u"123"_s);
    if (destroyed) {
        m->auth.reset();
        QCOMPARE(m->outcomes, QList<bool>{});
    } else {
        QTest::keyClick(m->window(), Qt::Key_Escape);
        QCOMPARE(m->outcomes, QList<bool>{false});
        QVERIFY(!m->window()->isVisible());
        QCOMPARE(m->secret("password") + m->secret("code"), QString());
        QTest::keyClick(m->window(), Qt::Key_Escape); // nothing more to close
        QCOMPARE(m->outcomes, QList<bool>{false});
    }
    EVENTUALLY(m->running().isEmpty());
    for (const QJsonObject &grandchild : m->tools.events(u"ipatool"_s, u"grandchild"))
        EVENTUALLY(!IsProcessAlive(grandchild.value("pid"_L1).toInt()));
}

void SignInSessionTest::noiseDoesNotStopTheWindow()
{
    tool()
        .asks(kAccountPrompt)
        .floods(10 << 20)
        .prints(u"\n")
        .asks(kPasswordPrompt, Typing::Hidden)
        .floods(1 << 20)
        .prints(u"\n")
        .prints(kSuccess);
    QVERIFY(m->open());
    m->start();
    // Counted in processor time: how busy the machine is with other things is not the question.
    auto last = ProcessorTime();
    std::chrono::nanoseconds longest{0};
    QTimer turns;
    connect(&turns, &QTimer::timeout, &turns, [&] {
        const auto time = ProcessorTime();
        longest = std::max(longest, time - std::exchange(last, time));
    });
    turns.start(1);
    EVENTUALLY_EQUAL(m->outcomes, QList<bool>{true});
    qInfo("longest work between two turns of the window: %.1f ms",
          static_cast<double>(longest.count()) / 1e6);
    QVERIFY2(longest < 50ms, "the window did not get its turn");
}

// A tool that has closed its terminal and lives on leaves one that is readable for ever.
void SignInSessionTest::hangUpDoesNotSpin()
{
    QFile script(m->tools.toolPath(u"ipatool"_s));
    QVERIFY(QDir().mkpath(m->tools.filePath(u"Tools"_s)) && script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nexec sleep 60 0<&- 1>&- 2>&-\n");
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    script.close();
    openAndStart();
    QTest::qWait(300);
    const auto before = ProcessorTime();
    QTest::qWait(1000);
    QVERIFY2(ProcessorTime() - before < 300ms, "the window kept turning for nothing");
    QVERIFY(!m->running().isEmpty());
}

void SignInSessionTest::leavesNothingBehind()
{
    constexpr int kRounds = 200;
    // By turns: success, failure before and after the password, "Отмена".
    const auto play = [&](int round) {
        Scenario scenario = tool();
        scenario.asks(kAccountPrompt);
        if (round % 4 == 1)
            scenario.asks(u"enter passphrase to unlock \"x\": ");
        scenario.asks(kPasswordPrompt, Typing::Raw)
            .prints(round % 4 == 0 ? kSuccess : u"{\"success\":false}\n");
        if (round % 4 == 3)
            scenario.asks(kCodePrompt);
    };
    qsizetype descriptors = 0;
    qsizetype threads = 0;
    for (int round = 0; round <= kRounds; ++round) {
        play(round);
        QVERIFY(m->open());
        m->start();
        if (round % 4 == 3) {
            EVENTUALLY_EQUAL(m->message(), kEnterCode);
            m->press("cancelButton");
        }
        EVENTUALLY(!m->outcomes.isEmpty() || m->isEditing());
        m->outcomes.clear();
        m->auth.reset();
        if (round > 0)
            continue;
        EVENTUALLY(OwnChildren().isEmpty());
        QTest::qWait(100); // the thread that watched the child is on its way out
        descriptors = OwnDescriptorCount();
        threads = OwnThreadCount();
    }
    EVENTUALLY(OwnChildren().isEmpty());
    EVENTUALLY_EQUAL(OwnDescriptorCount(), descriptors);
    EVENTUALLY_EQUAL(OwnThreadCount(), threads);
    qInfo("after %d sign-ins: %lld descriptors, %lld threads", kRounds, static_cast<long long>(descriptors),
          static_cast<long long>(threads));
}

QTEST_MAIN(SignInSessionTest)
#include "tst_sign_in_session.moc"
