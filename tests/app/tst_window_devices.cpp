#include "app/window_fixture.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QElapsedTimer>
#include <QWheelEvent>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kSoon = 3000; // ms; well before the timer's first tick
constexpr QStringView kTwoPhones =
    uR"({"devices":[{"id":"PHONE-2","name":"Другой","ios":"16.1"},{"id":"PHONE-1","name":"Телефон","ios":"17.4"}]})";
const QStringList kPoll{u"devices"_s};

} // namespace

class WindowDevicesTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup() { m.reset(); }

    void looksForPhonesAfterTheFirstCheck();
    void looksAgainEverySixSeconds();
    void leavesTheChosenPhoneAlone();
    void forgetsAPhoneThatIsGone_data();
    void forgetsAPhoneThatIsGone();
    void forgetsWhatWasTypedWithoutPhone();
    void letsThePhoneGo();
    void changesThePhone();
    void choosesInTheUnfoldedListOnly();
    void dropsPollsDuringWork();
    void asksAgainWhenAppsCannotBeRead();
    void readsAppsWithoutInformation();
    void dropsAHiddenChoice();
    void keepsTheChoiceWhenReadingAgain();
    void showsTenThousandApps();

private:
    qsizetype polls() const { return m->tools.calls(u"devicezarvo"_s).count(kPoll); }
    QString picked() const { return m->find<QComboBox>("phonePicker")->currentText(); }
    QString typedID() const { return m->find<QLineEdit>("storeID")->text(); }
    QString searched() const { return m->find<QLineEdit>("search")->text(); }
    void answerDevices(QStringView answer)
    {
        m->playDevice([&](Scenario &tool) { tool.when({u"devices"}).prints(answer); });
    }
    void answerApps(QStringView answer)
    {
        m->playDevice([&](Scenario &tool) { tool.when({u"apps"}).prints(answer); });
    }

    std::optional<Program> m;
};

void WindowDevicesTest::looksForPhonesAfterTheFirstCheck()
{
    const QString go = m->tools.filePath(u"go"_s);
    m->playStore([&](Scenario &tool) { tool.when({u"auth"}).awaits(go).prints(u"{\"success\":true}"); });
    QVERIFY(m->start());
    QCOMPARE(m->status(), u"Проверка входа…"_s);
    QVERIFY(m->tools.waitForCalls(u"ipatool"_s, 1));
    QCOMPARE(polls(), 0);
    m->tools.touch(u"go"_s);
    EVENTUALLY(!m->isBusy());
    QElapsedTimer clock;
    clock.start();
    EVENTUALLY_EQUAL(m->phonesListed(), (QStringList{u"Выберите iPhone"_s, u"Телефон · iOS 17.4"_s}));
    QVERIFY2(clock.elapsed() < kSoon, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(picked(), u"Выберите iPhone"_s); // never chosen by itself
    QCOMPARE(m->status(), u"iPhone найден. Выберите устройство в списке выше."_s);
}

void WindowDevicesTest::looksAgainEverySixSeconds()
{
    QVERIFY(m->startWithPhone());
    answerDevices(kTwoPhones);
    QElapsedTimer clock;
    clock.start();
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
    QVERIFY2(clock.elapsed() > kSoon && clock.elapsed() < 3 * kSoon,
             qPrintable(QString::number(clock.elapsed())));
}

void WindowDevicesTest::leavesTheChosenPhoneAlone()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    m->type("search", u"КАРТЫ"_s);
    m->type("storeID", u"5"_s);
    const QString status = m->status();
    answerDevices(kTwoPhones); // it has moved in the list
    m->press("refresh");
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
    QCOMPARE(picked(), u"Телефон · iOS 17.4"_s);
    QCOMPARE(m->namesListed(), QStringList{u"Карты"_s});
    QCOMPARE(searched(), u"КАРТЫ"_s);
    QCOMPARE(typedID(), u"5"_s);
    QCOMPARE(m->status(), status);
    QVERIFY(m->find("downloadButton")->isEnabled());
}

void WindowDevicesTest::forgetsAPhoneThatIsGone_data()
{
    QTest::addColumn<QString>("devices");
    QTest::addColumn<QString>("prompt");
    QTest::addColumn<QString>("trouble");
    const QString connect = u"Подключите iPhone кабелем и выберите его в списке."_s;
    QTest::newRow("none is left") << uR"({"devices":[]})"_s << connect << QString();
    QTest::newRow("the answer has no list") << u"{}"_s << connect << QString();
    QTest::newRow("the answer tells of a failure")
        << uR"({"devices":[{"id":"PHONE-1"}],"error":"Служба молчит."})"_s << connect << u"Служба молчит."_s;
    QTest::newRow("another one is there")
        << uR"({"devices":[{"id":"PHONE-2"}]})"_s << u"iPhone найден. Выберите устройство в списке выше."_s
        << QString();
}

void WindowDevicesTest::forgetsAPhoneThatIsGone()
{
    QFETCH(const QString, devices);
    QFETCH(const QString, trouble);
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    m->type("search", u"а"_s);
    answerDevices(devices);
    m->find("downloadButton")->setFocus();
    m->ask("refresh");
    EVENTUALLY_EQUAL(picked(), u"Выберите iPhone"_s);
    QCOMPARE(m->window()->focusWidget(),
             m->find<QWidget>("phonePicker")); // not the next button, for a stray key to press
    QTEST(m->status(), "prompt");
    EVENTUALLY_EQUAL(m->find<QLabel>("phoneTrouble")->isVisible(), !trouble.isEmpty());
    QTEST(m->text("phoneTrouble"), "trouble");
    QCOMPARE(m->namesListed(), QStringList());
    QCOMPARE(searched() + typedID() + m->transfer(), QString());
    QCOMPARE(m->text("ownerLabel"), u"Выберите приложение в таблице."_s);
    for (const char *button : {"infoButton", "downloadButton", "allButton", "installButton"})
        QVERIFY2(!m->find(button)->isEnabled(), button);
}

void WindowDevicesTest::forgetsWhatWasTypedWithoutPhone()
{
    QVERIFY(m->startWithPhone());
    m->type("search", u"к"_s);
    m->type("storeID", u"5"_s);
    m->press("refresh");
    EVENTUALLY_EQUAL(searched() + typedID(), QString());
}

void WindowDevicesTest::letsThePhoneGo()
{
    QVERIFY(m->startWithApps());
    const auto reads = [&] { return m->tools.calls(u"devicezarvo"_s).size() - polls(); };
    const qsizetype before = reads();
    m->choosePhone(Qt::Key_Home);
    QCOMPARE(m->namesListed(), QStringList());
    QVERIFY(!m->isBusy() && !m->find("infoButton")->isEnabled());
    QCOMPARE(reads(), before);
}

void WindowDevicesTest::changesThePhone()
{
    answerDevices(kTwoPhones);
    QVERIFY(m->start());
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
    m->choosePhone();
    EVENTUALLY_EQUAL(m->status(), u"Прочитано приложений: 3. Выберите приложение в таблице."_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(m->chooseApp(u"Карты"_s));
    m->playDevice([](Scenario &tool) {
        tool.when({u"devices"}).prints(kTwoPhones);
        tool.when({u"apps", u"PHONE-2"}).prints(uR"({"apps":[{"id":"com.example.maps"}]})");
    });
    m->choosePhone(Qt::Key_Up);
    QCOMPARE(m->namesListed(), QStringList());
    QCOMPARE(m->status(), u"Чтение списка приложений…"_s);
    EVENTUALLY_EQUAL(m->status(), u"Прочитано приложений: 1. Выберите приложение в таблице."_s);
    QCOMPARE(m->namesListed(), QStringList{u""_s});
    QVERIFY(typedID().isEmpty()); // the same app, but not chosen on this phone
    QCOMPARE(m->tools.calls(u"devicezarvo"_s).last().last(), u"PHONE-2"_s);
}

// The first of two phones is locked: reading its apps on the way to the second one would end in a refusal.
void WindowDevicesTest::choosesInTheUnfoldedListOnly()
{
    QVERIFY(m->startWithPhone());
    m->playDevice([](Scenario &tool) {
        tool.when({u"devices"}).prints(kTwoPhones);
        tool.when({u"apps", u"PHONE-2"}).prints(uR"({"error":"locked"})").exits(1);
    });
    auto *picker = m->find<QComboBox>("phonePicker");
    picker->showPopup();
    m->ask("refresh");
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
    QVERIFY(!picker->view()->isVisible()); // no line moves under the pointer
    picker->setFocus();
    for (const int turn : {-120, 120}) {
        QWheelEvent wheel(picker->rect().center(), picker->mapToGlobal(picker->rect().center()), {},
                          {0, turn}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
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
    QCOMPARE(picked(), u"Телефон · iOS 17.4"_s);
    QVERIFY(!m->tools.calls(u"devicezarvo"_s).contains(QStringList{u"apps"_s, u"PHONE-2"_s}));
}

void WindowDevicesTest::dropsPollsDuringWork()
{
    QVERIFY(m->startWithApps());
    m->playDevice([&](Scenario &tool) {
        tool.when({u"devices"}).times(1).awaits(m->tools.filePath(u"poll"_s)).prints(kTwoPhones);
        tool.when({u"devices"}).prints(kTwoPhones);
        tool.when({u"apps"}).awaits(m->tools.filePath(u"apps"_s)).prints(u"{}");
    });
    const qsizetype before = polls();
    m->press("refresh");
    m->press("refresh"); // one at a time
    QTRY_COMPARE(polls(), before + 1);
    m->press("reloadApps");
    QVERIFY(m->isBusy());
    m->ask("refresh");
    m->tools.touch(u"poll"_s);
    EVENTUALLY_EQUAL(PrivateFoldersIn(m->temporary.path()).size(), 1); // the poll has ended, the read goes on
    QTest::qWait(0);                                                   // what it has queued arrives
    QCOMPARE(m->phonesListed().size(), 2);                             // its answer came too late
    m->tools.touch(u"apps"_s);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(polls(), before + 1);
    m->press("refresh");
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3);
}

void WindowDevicesTest::asksAgainWhenAppsCannotBeRead()
{
    QVERIFY(m->startWithPhone());
    m->playDevice([&](Scenario &tool) {
        tool.when({u"apps"}).prints(uR"({"error":"Телефон заблокирован."})");
        tool.when({u"devices"}).awaits(m->tools.filePath(u"go"_s)).prints(kTwoPhones);
    });
    m->choosePhone();
    EVENTUALLY(!m->isBusy());
    QCOMPARE(m->status(),
             u"Подключите и разблокируйте iPhone, подтвердите доверие к Mac и выберите устройство заново."_s);
    QCOMPARE(picked(), u"Выберите iPhone"_s);
    QVERIFY(!m->alert());
    m->tools.touch(u"go"_s);
    EVENTUALLY_EQUAL(m->phonesListed().size(), 3); // asked for at once
}

void WindowDevicesTest::readsAppsWithoutInformation()
{
    m->playDevice([](Scenario &tool) { tool.when({u"info"}).prints(uR"({"error":"x"})").exits(1); });
    QVERIFY(m->startWithApps());
    QCOMPARE(m->namesListed(), (QStringList{u"Tom & <b>Jerry</b>"_s, u"заметки"_s, u"Карты"_s}));
    QCOMPARE(m->status(), u"Прочитано приложений: 3. Выберите приложение в таблице."_s);
    QVERIFY(!m->alert());
}

void WindowDevicesTest::dropsAHiddenChoice()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    m->type("search", u"EXAMPLE.MAP"_s);
    QCOMPARE(m->namesListed(), QStringList{u"Карты"_s});
    QCOMPARE(typedID(), u"123"_s);
    m->type("search", u"заметки"_s);
    QCOMPARE(typedID(), QString());
    QCOMPARE(m->text("ownerLabel"), u"Выберите приложение в таблице."_s);
    QVERIFY(!m->find("downloadButton")->isEnabled() && m->find("allButton")->isEnabled());
    m->type("storeID", u"5"_s);
    m->type("search", {});
    QCOMPARE(m->namesListed().size(), 3);
    QVERIFY(!m->find<QTableView>("table")->selectionModel()->hasSelection());
    QCOMPARE(typedID(), QString());
}

void WindowDevicesTest::keepsTheChoiceWhenReadingAgain()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    answerApps(
        uR"({"apps":[{"id":"com.example.maps","name":"Карты","version":"2"},{"id":"a","name":"Агент"}]})");
    m->press("reloadApps");
    EVENTUALLY_EQUAL(m->text("ownerLabel"), u"Выбрано: Карты 2"_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(m->find<QTableView>("table")->selectionModel()->isRowSelected(1));
    answerApps(uR"({"apps":[{"id":"a","name":"Агент"}]})");
    m->press("reloadApps");
    EVENTUALLY_EQUAL(m->text("ownerLabel"), u"Выберите приложение в таблице."_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(!m->find("downloadButton")->isEnabled());
    answerApps(u"{}");
    m->press("reloadApps");
    EVENTUALLY_EQUAL(m->status(), u"Прочитано приложений: 0. Выберите приложение в таблице."_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(!m->find("allButton")->isEnabled());
}

void WindowDevicesTest::showsTenThousandApps()
{
    QStringList apps;
    for (int i = 19999; i >= 10000; --i)
        apps.append(uR"({"id":"com.example.app%1","name":"Приложение %1","version":"1"})"_s.arg(i));
    const QString answer = u"{\"apps\":[%1]}"_s.arg(apps.join(u','));
    answerApps(answer);
    QVERIFY(m->startWithPhone());
    m->choosePhone();
    EVENTUALLY_EQUAL(m->status(), u"Прочитано приложений: 10000. Выберите приложение в таблице."_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(m->chooseApp(u"Приложение 19999"_s));
    m->type("search", u"ПРИЛОЖЕНИЕ 1999"_s);
    QCOMPARE(m->namesListed().size(), 10);
    QCOMPARE(m->text("ownerLabel"), u"Выбрано: Приложение 19999 1"_s);
}

QTEST_MAIN(WindowDevicesTest)
#include "tst_window_devices.moc"
