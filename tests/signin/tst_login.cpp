// The sign-in as part of the program: when it opens, what rests meanwhile, and what follows it.
#include "app/window_fixture.h"
#include "signin/sign_in_window.h"

#include <QLabel>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class LoginTest : public ProgramTest
{
    Q_OBJECT

private:
    QDialog *sheet() const
    {
        for (auto *sheet : m->window()->findChildren<SignInWindow *>()) {
            if (sheet->isVisible())
                return sheet;
        }
        return nullptr;
    }
    // The tool's dialogue, up to what comes after the password.
    void playLogin(const Rules &after)
    {
        m->playStore([after](Scenario &tool) {
            tool.when({u"--format", u"json", u"auth", u"login"})
                .asks(u"enter Apple ID (email address or phone number): ")
                .asks(u"enter password: ", Scenario::Typing::Raw)
                .prints(u"\r\n");
            after(tool);
        });
    }
    void signIn() const
    {
        auto *password = sheet()->findChild<QLineEdit *>(u"password"_s);
        password->setFocus();
        QTest::keyClicks(password, u"Correct horse 7"_s);
        QTest::keyClick(password, Qt::Key_Return);
    }
    qsizetype count(const QString &tool, const QString &word) const
    {
        const QList<QStringList> calls = m->tools.calls(tool);
        return std::count_if(calls.begin(), calls.end(),
                             [&](const QStringList &call) { return call.contains(word); });
    }

private Q_SLOTS:
    // The one that bought the chosen app, or else the one confirmed last.
    void proposesAnAccount()
    {
        QVERIFY(m->startWithApps());
        for (const auto &[app, proposed] : {std::pair(u"Карты"_s, u"first@example.com"_s),
                                            std::pair(u"заметки"_s, u"owner@example.com"_s)}) {
            QVERIFY(m->chooseApp(app));
            m->press("login");
            QVERIFY(sheet());
            QCOMPARE(sheet()->findChild<QLineEdit *>(u"account"_s)->text(), proposed);
            QTest::keyClick(sheet(), Qt::Key_Escape);
        }
    }

    void opensOnceAndNotDuringAJob()
    {
        const QString go = m->tools.filePath(u"go"_s);
        m->playStore([&](Scenario &tool) { tool.when({u"auth", u"info"}).awaits(go); });
        QVERIFY(m->start());
        EVENTUALLY(m->isBusy());
        m->ask("login");
        QVERIFY(!sheet());
        m->tools.touch(u"go"_s);
        EVENTUALLY(!m->isBusy());
        for (int times = 0; times < 2; ++times)
            m->ask("login");
        QCOMPARE(m->window()->findChildren<SignInWindow *>().size(), 1);
        QVERIFY(sheet());
    }

    void everythingElseRests()
    {
        playLogin([](Scenario &tool) { tool.prints(u"enter 2FA code: ").sleeps(60s); });
        QVERIFY(m->startWithApps());
        m->press("login");
        const QList<QStringList> deviceCalls = m->tools.calls(u"devicezarvo"_s);
        const qsizetype checks = count(u"ipatool"_s, u"info"_s);
        signIn();
        EVENTUALLY(sheet()->findChild<QLineEdit *>(u"code"_s)->isVisible());

        for (const char *button : {"checkAccount", "refresh", "reloadApps", "login"})
            m->ask(button);
        auto *polls = m->app().findChild<QTimer *>({}, Qt::FindDirectChildrenOnly);
        QVERIFY(polls && polls->interval() == 6000);
        polls->setInterval(10);
        QTest::qWait(300);
        QVERIFY(!m->isBusy());
        QCOMPARE(m->tools.calls(u"devicezarvo"_s), deviceCalls);
        QCOMPARE(count(u"ipatool"_s, u"info"_s), checks);
        QTest::keyClick(sheet(), Qt::Key_Escape);
        QVERIFY(!sheet());
        m->deviceSays({u"devices"}, u"{}");
        EVENTUALLY_EQUAL(m->phonesListed().size(), 1); // the polls go on
        QCOMPARE(count(u"ipatool"_s, u"info"_s), checks);
    }

    // The check after it fails, so the tool has confirmed no account, but names it.
    void whatWasTypedIsKnown()
    {
        playLogin([](Scenario &tool) {
            tool.prints(u"{\"success\":true}\n");
            tool.when({u"auth", u"info"}).prints(uR"({"error":"79165550142 is not active"})").exits(1);
        });
        QVERIFY(m->startWithPhone());
        EVENTUALLY(!m->isBusy());
        m->press("login");
        sheet()->findChild<QLineEdit *>(u"account"_s)->setText(u"+7 916 555-01-42"_s);
        signIn();
        EVENTUALLY(m->alert() && m->window()->findChildren<SignInWindow *>().isEmpty());
        QCOMPARE(m->status().section(u"Причина: "_s, 1), u"[аккаунт скрыт] is not active"_s);
    }

    void saysWhatAilsTheTool()
    {
        m->playStore([](Scenario &tool) {
            tool.when({u"login"}).printsError(u"Error: required flag(s) \"email\" not set").exits(1);
        });
        QVERIFY(m->startWithPhone());
        m->press("login");
        sheet()->findChild<QLineEdit *>(u"account"_s)->setText(u"a@b.example"_s);
        signIn();
        const auto *advice = sheet()->findChild<QLabel *>(u"advice"_s);
        EVENTUALLY(advice->isVisible());
        QVERIFY2(advice->text().startsWith(u"Эта версия ipatool не подходит"), qPrintable(advice->text()));
    }
};

QTEST_MAIN(LoginTest)
#include "tst_login.moc"
