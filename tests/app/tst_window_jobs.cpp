#include "app/spinner.h"
#include "app/window_fixture.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

const QString kConnect = u"Подключите iPhone кабелем и выберите его в списке."_s;
const QString kFound = u"iPhone найден. Выберите устройство в списке выше."_s;
const QString kNotConfirmed = u"Вход не подтверждён. Выполните вход в Apple Account."_s;

} // namespace

class WindowJobsTest : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void keepsQuietAboutTheFirstCheckOnly()
    {
        for (const auto &[devices, prompt] :
             {std::pair(u"[]", kConnect), std::pair(u"[{\"id\":\"1\"},{\"id\":\"2\"}]", kFound)}) {
            m.emplace();
            m->deviceSays({u"devices"}, u"{\"devices\":%1}"_s.arg(devices));
            m->storeSays({u"auth", u"info"}, u"{}");
            QVERIFY(m->start());
            QVERIFY(m->tools.waitForCalls(u"devicezarvo"_s, 1));
            EVENTUALLY(!m->isBusy());
            EVENTUALLY_EQUAL(m->status(), prompt);
            QVERIFY(!m->alert());
            QCOMPARE(m->transfer() + m->text("accountLabel"), u"Вход не подтверждён"_s);
            QVERIFY(m->perform("checkAccount"));
            QCOMPARE(m->alertTexts().value(1), kNotConfirmed);
            QApplication::clipboard()->setText(u"before"_s);
            QTest::keyClick(m->alert(), Qt::Key_Return); // not the button that copies
            EVENTUALLY(!m->alert());
            QCOMPARE(QApplication::clipboard()->text(), u"before"_s);
        }
    }

    void runsOneJobAtATime()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        m->storeSaysLater({u"auth", u"info"}, u"{}");
        const qsizetype storeCalls = m->storeCalls().size();
        const QList<QStringList> deviceCalls = m->deviceCalls();
        m->press("checkAccount");
        for (const char *other : {"checkAccount", "reloadApps", "refresh"})
            m->ask(other);
        QVERIFY(m->tools.waitForCalls(u"ipatool"_s, storeCalls + 1));
        QStringList enabled;
        const auto widgets = m->window()->findChildren<QWidget *>();
        for (const QWidget *widget : widgets) {
            if (widget->isEnabled() && widget->focusPolicy() & Qt::TabFocus)
                enabled.append(widget->objectName());
        }
        QCOMPARE(enabled, QStringList{u"cancelButton"_s});
        QVERIFY(m->find<Spinner>("spinner")->isAnimating());
        QCOMPARE(m->status(), u"Проверка входа…"_s);

        m->go();
        EVENTUALLY(!m->isBusy());
        QVERIFY(!m->find<Spinner>("spinner")->isAnimating());
        QVERIFY(m->answerAlert(u"Понятно"_s));
        QCOMPARE(m->storeCalls().size(), storeCalls + 1);
        QCOMPARE(m->deviceCalls(), deviceCalls);
        QVERIFY(m->find("downloadButton")->isEnabled());
    }

    void keepsTheFocusOffCancelling()
    {
        QVERIFY(m->startWithPhone());
        m->storeSaysLater({u"auth", u"info"}, u"{}");
        QAbstractButton *check = m->find("checkAccount");
        check->setFocus();
        QTest::keyClick(check, Qt::Key_Space);
        QVERIFY(m->isBusy());
        QWidget other;
        other.show();
        for (QWidget *next : {m->window(), &other, m->window()}) {
            next->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(next));
            for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return})
                QTest::keyClick(next->windowHandle(), key);
        }
        m->go();
        EVENTUALLY(m->alert());
        QCOMPARE(m->status(), kNotConfirmed); // not cancelled
        QVERIFY(m->answerAlert(u"Понятно"_s));
        EVENTUALLY_EQUAL(QApplication::focusWidget(), check);
    }

    void explainsAnotherProgramInPlaceOfTheTool()
    {
        QVERIFY(m->startWithPhone());
        m->playStore([](Scenario &tool) {
            tool.when({u"auth"}).printsError(u"Error: unknown command \"auth\"").exits(1);
        });
        QVERIFY(m->perform("checkAccount"));
        const QStringList texts = m->alertTexts();
        QCOMPARE(texts.size(), 3);
        QCOMPARE(texts[1], m->status());
        QVERIFY(texts[1].contains(u"Код модуля: 1. Причина: Error: unknown command"));
        QVERIFY(texts[2].startsWith(u"Эта версия ipatool не подходит"));
    }

    // Without it the list of phones becomes empty without a word, and the phone is to be chosen again.
    void livesWithoutTools()
    {
        QVERIFY(m->startWithPhone());
        for (const QString &tool : {u"ipatool"_s, u"devicezarvo"_s})
            QVERIFY(QFile::remove(m->tools.toolPath(tool)));
        QVERIFY(m->perform("checkAccount"));
        QVERIFY(m->status().startsWith(u"Не удалось запустить «ipatool»: программы нет в папке "));
        QVERIFY(m->answerAlert(u"Понятно"_s));
        m->choosePhone();
        EVENTUALLY(!m->isBusy());
        EVENTUALLY_EQUAL(m->phonesListed().size(), 1);
        EVENTUALLY_EQUAL(m->status(), kConnect);
        QVERIFY(!m->alert() && m->find("refresh")->isEnabled());
    }
};

QTEST_MAIN(WindowJobsTest)
#include "tst_window_jobs.moc"
