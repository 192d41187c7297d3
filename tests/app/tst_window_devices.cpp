// The list of phones, and the apps of the one that is chosen.
#include "app/window_fixture.h"
#include "support/rows.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QElapsedTimer>
#include <QWheelEvent>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kSoon = 3000; // ms; well before the timer's first tick
constexpr QStringView kTwoPhones =
    uR"({"devices":[{"id":"PHONE-2","name":"Другой","ios":"16.1"},{"id":"PHONE-1","name":"Телефон","ios":"17.4"}]})";
const QString kChoose = u"Выберите iPhone"_s;
const QString kChooseApp = u"Выберите приложение в таблице."_s;
const QString kRead = u"Прочитано приложений: %1. "_s + kChooseApp;
const QString kFound = u"iPhone найден. Выберите устройство в списке выше."_s;
const QString kAgain =
    u"Подключите и разблокируйте iPhone, подтвердите доверие к Mac и выберите устройство заново."_s;
const QString kPhone = u"Телефон · iOS 17.4"_s;

} // namespace

class WindowDevicesTest : public ProgramTest
{
    Q_OBJECT

private:
    qsizetype polls() const { return m->tools.calls(u"devicezarvo"_s).count(QStringList{u"devices"_s}); }
    QString picked() const { return m->find<QComboBox>("phonePicker")->currentText(); }
    QString typedID() const { return m->find<QLineEdit>("storeID")->text(); }
    QString typed() const { return m->find<QLineEdit>("search")->text() + typedID(); }
    /// Polls while the tool answers so.
    void lookAgain(QStringView devices)
    {
        m->deviceSays({u"devices"}, devices);
        m->ask("refresh");
    }
    /// What stands in the empty table, where a screen reader finds it.
    QString note() const
    {
        const QString text = m->text("phoneTrouble");
        return Program::told().contains(text) ? text : QString();
    }
    void readApps(QStringView answer)
    {
        m->deviceSays({u"apps"}, answer);
        QVERIFY(m->perform("reloadApps"));
    }

private Q_SLOTS:
    void looksForPhonesAfterTheFirstCheck()
    {
        m->storeSaysLater({u"auth"}, u"{\"success\":true}");
        QVERIFY(m->start() && m->tools.waitForCalls(u"ipatool"_s, 1));
        QCOMPARE(polls(), 0);
        m->go();
        EVENTUALLY(!m->isBusy());
        QElapsedTimer clock;
        clock.start();
        EVENTUALLY_EQUAL(m->phonesListed(), (QStringList{kChoose, kPhone}));
        QCOMPARE_LT(clock.elapsed(), kSoon);
        QCOMPARE(picked(), kChoose); // never chosen by itself
        QCOMPARE(m->status(), kFound);
        m->deviceSays({u"devices"}, kTwoPhones);
        EVENTUALLY_EQUAL(m->phonesListed().size(), 3); // every six seconds it looks again
    }

    void leavesTheChosenPhoneAlone()
    {
        m->deviceSays({u"info"}, uR"({"error":"x"})", 1); // the apps are read all the same
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        m->type("search", u"КАРТЫ"_s);
        m->type("storeID", u"5"_s);
        lookAgain(kTwoPhones); // it has moved in the list
        EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
        QCOMPARE(picked() + m->namesListed().join(u' ') + typed(), kPhone + u"КартыКАРТЫ5"_s);
        QCOMPARE(m->status(), kRead.arg(3));
        QVERIFY(m->find("downloadButton")->isEnabled());
    }

    void forgetsAPhoneThatIsGone_data()
    {
        const Rows<QString, QString, QString> row; // the answer, what is asked for, what is said of trouble
        const QString connect = u"Подключите iPhone кабелем и выберите его в списке."_s;
        row("none is left", uR"({"devices":[]})"_s, connect, {});
        row("the answer tells of a failure", uR"({"devices":[{"id":"PHONE-1"}],"error":"Служба молчит."})"_s,
            connect, u"Служба молчит."_s);
        row("another one is there", uR"({"devices":[{"id":"PHONE-2"}]})"_s, kFound, {});
    }

    void forgetsAPhoneThatIsGone()
    {
        const auto &[devices, prompt, trouble] = Row<QString, QString, QString>();
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        m->type("search", u"а"_s);
        m->find("downloadButton")->setFocus();
        lookAgain(devices);
        EVENTUALLY_EQUAL(picked(), kChoose);
        // Not the next button, for a stray key to press.
        QCOMPARE(m->window()->focusWidget(), m->find<QWidget>("phonePicker"));
        EVENTUALLY_EQUAL(note(), trouble);
        QCOMPARE(m->status(), prompt);
        QCOMPARE(m->namesListed().join(u' ') + typed() + m->text("ownerLabel"), kChooseApp);
        for (const char *button : {"infoButton", "downloadButton", "allButton", "installButton"})
            QVERIFY2(!m->find(button)->isEnabled(), button);
    }

    void changesThePhone()
    {
        m->playDevice([](Scenario &tool) {
            tool.when({u"devices"}).prints(kTwoPhones);
            tool.when({u"apps", u"PHONE-2"}).prints(uR"({"apps":[{"id":"com.example.maps"}]})");
        });
        QVERIFY(m->start());
        EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
        m->choosePhone();
        EVENTUALLY(!m->isBusy() && m->chooseApp(u"Карты"_s));
        m->choosePhone(Qt::Key_Up);
        QCOMPARE(m->namesListed(), QStringList());
        EVENTUALLY_EQUAL(m->status(), kRead.arg(1));
        QCOMPARE(m->namesListed(), QStringList{u""_s});
        QVERIFY(typedID().isEmpty()); // the same app, but not chosen on this phone
        EVENTUALLY(!m->isBusy());
        const qsizetype reads = m->deviceCalls().size();
        m->choosePhone(Qt::Key_Home); // none at all
        QCOMPARE(m->namesListed(), QStringList());
        QVERIFY(!m->isBusy() && !m->find("infoButton")->isEnabled());
        QCOMPARE(m->deviceCalls().size(), reads);
    }

    // The first of two phones may be locked: reading its apps on the way to the second one would end in a
    // refusal.
    void choosesInTheUnfoldedListOnly()
    {
        QVERIFY(m->startWithPhone());
        auto *picker = m->find<QComboBox>("phonePicker");
        picker->showPopup();
        lookAgain(kTwoPhones);
        EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
        QVERIFY(!picker->view()->isVisible()); // no line moves under the pointer
        picker->setFocus();
        const QPoint place = picker->rect().center();
        for (const int turn : {-120, 120}) {
            QWheelEvent wheel(place, picker->mapToGlobal(place), {}, {0, turn}, Qt::NoButton, Qt::NoModifier,
                              Qt::NoScrollPhase, false);
            QApplication::sendEvent(picker, &wheel);
        }
        for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Up, Qt::Key_End, Qt::Key_T}) {
            QTest::keyClick(picker, key);
            QVERIFY2(picker->view()->isVisible(), qPrintable(QString::number(key)));
            QTest::keyClick(picker->view(), Qt::Key_Escape);
            QCOMPARE(picker->currentIndex(), 0);
        }
        QTest::keyClick(picker, Qt::Key_Down);
        for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Down, Qt::Key_Return})
            QTest::keyClick(picker->view(), key);
        EVENTUALLY_EQUAL(m->namesListed().size(), 3);
        QCOMPARE(picked(), kPhone);
        QVERIFY(!m->deviceCalls().contains(QStringList{u"apps"_s, u"PHONE-2"_s}));
    }

    void dropsPollsDuringWork()
    {
        QVERIFY(m->startWithApps());
        m->playDevice([&](Scenario &tool) {
            tool.when({u"devices"}).times(1).awaits(m->tools.filePath(u"poll"_s)).prints(kTwoPhones);
            tool.when({u"devices"}).prints(kTwoPhones);
            tool.when({u"apps"}).awaits(m->tools.filePath(u"go"_s)).prints(u"{}");
        });
        const qsizetype before = polls();
        for (int times = 0; times < 2; ++times)
            m->press("refresh"); // one at a time
        QTRY_COMPARE(polls(), before + 1);
        m->press("reloadApps");
        QVERIFY(m->isBusy());
        m->ask("refresh");
        m->tools.touch(u"poll"_s);
        // The poll has ended, the read goes on; what it has queued arrives, but it came too late.
        EVENTUALLY_EQUAL(PrivateFoldersIn(m->temporary.path()).size(), 1);
        QTest::qWait(0);
        QCOMPARE(m->phonesListed().size(), 2);
        m->go();
        EVENTUALLY(!m->isBusy());
        QCOMPARE(polls(), before + 1);
        m->press("refresh");
        EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
    }

    void saysWhyAppsCannotBeRead()
    {
        const QString locked = u"Телефон заблокирован."_s;
        const auto said = [this] { return m->text("phoneTrouble") + m->status() + typed(); };
        QVERIFY(m->startWithPhone());
        m->deviceSays({u"apps"}, uR"({"error":"%1"})"_s.arg(locked));
        const qsizetype before = polls();
        m->choosePhone();
        EVENTUALLY(polls() > before); // asked for at once
        m->type("search", u"а"_s);
        EVENTUALLY((m->press("refresh"), polls() > before + 1)); // the one before is over
        QCOMPARE(picked() + said(), kChoose + locked + kAgain + u'а');
        lookAgain(kTwoPhones);
        EVENTUALLY_EQUAL(said(), kFound + u'а');
    }

    void keepsTheChoiceWhileItIsListed()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        m->type("search", u"EXAMPLE.MAP"_s);
        QCOMPARE(m->namesListed().join(u' ') + typedID(), u"Карты123"_s);
        m->type("search", u"заметки"_s);
        QCOMPARE(typedID() + m->text("ownerLabel"), kChooseApp);
        QVERIFY(!m->find("downloadButton")->isEnabled() && m->find("allButton")->isEnabled());
        m->type("storeID", u"5"_s);
        m->type("search", u"карты и заметки"_s);
        QCOMPARE(note(), u"Ничего не найдено"_s);
        m->type("search", {});
        QCOMPARE(note(), QString());
        QVERIFY(!m->find<QTableView>("table")->selectionModel()->hasSelection());
        QCOMPARE(typedID(), QString());

        QVERIFY(m->chooseApp(u"Карты"_s));
        readApps(
            uR"({"apps":[{"id":"com.example.maps","name":"Карты","version":"2"},{"id":"a","name":"Агент"}]})");
        QCOMPARE(m->text("ownerLabel"), u"Выбрано: Карты 2"_s);
        QVERIFY(m->find<QTableView>("table")->selectionModel()->isRowSelected(1));
        readApps(uR"({"apps":[{"id":"a","name":"Агент"}]})");
        QCOMPARE(m->text("ownerLabel"), kChooseApp);
        QVERIFY(!m->find("downloadButton")->isEnabled());
        // Two entries of one app are two rows, each with its own identifier in the store.
        readApps(uR"({"apps":[{"id":"a","name":"А","storeID":"1"},{"id":"a","name":"Б","storeID":"2"}]})");
        QVERIFY(m->chooseApp(u"А"_s));
        QVERIFY(m->chooseApp(u"Б"_s));
        QCOMPARE(typedID(), u"2"_s);
        // As a tool of the desktop writes into the field.
        QAccessible::queryAccessibleInterface(m->find<QLineEdit>("search"))
            ->setText(QAccessible::Value, u"Б"_s);
        QCOMPARE(m->namesListed(), QStringList{u"Б"_s});
        m->type("search", {});
        readApps(u"{}");
        QCOMPARE(m->status() + note(), kRead.arg(0) + u"На iPhone нет приложений"_s);
        QVERIFY(!m->find("allButton")->isEnabled());
    }
};

QTEST_MAIN(WindowDevicesTest)
#include "tst_window_devices.moc"
