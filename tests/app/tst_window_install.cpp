#include "app/window_fixture.h"
#include "support/rows.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kLong = std::chrono::milliseconds(3 * kPatience); // what ends earlier was ended
const QString kDone = u"{\"success\":true}"_s;
constexpr QStringView kConfirmed =
    u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться "
    "Apple Account владельца лицензии.";
/// Two entries of one app, one of them in the IPA's version, and not in the order of names.
constexpr QStringView kInstalled = uR"({"apps":[{"id":"com.example.notes","name":"заметки","version":"2.0"},)"
                                   uR"({"id":"com.example.notes","name":"заметки","version":"2.1"},)"
                                   uR"({"id":"com.example.other","name":"Агент","version":"1"}]})";

} // namespace

class WindowInstallTest : public ProgramTest
{
    Q_OBJECT

private:
    QList<QStringList> newCalls() const { return m->deviceCalls().sliced(m_known); }
    bool chooseBoth()
    {
        const bool both = m->startWithApps() && m->chooseIPA(m->notesIPA);
        m_known = m->deviceCalls().size();
        return both;
    }

    qsizetype m_known = 0;

private Q_SLOTS:
    void installsAndReadsAgain()
    {
        QVERIFY(chooseBoth());
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
        m->playDevice([&](Scenario &tool) {
            tool.when({u"install"}).awaits(m->tools.filePath(u"go"_s)).prints(kDone);
            tool.when({u"apps"}).prints(kInstalled);
        });
        m->press("installButton");
        QCOMPARE(m->alertTexts(), (QStringList{u"Установить IPA на выбранный iPhone?"_s,
                                               u"notes.ipa\nТелефон · iOS 17.4\nУстановка может заменить "
                                               "существующую версию. iOS проверит подпись и лицензию."_s}));
        QVERIFY(!m->isBusy());
        QVERIFY(m->answerAlert(u"Установить"_s));
        QCOMPARE(m->status(), u"Проверка IPA…"_s);
        EVENTUALLY_EQUAL(m->status(), u"Передача IPA и установка на iPhone…"_s);
        m->go();
        EVENTUALLY_EQUAL(m->status(), kConfirmed);
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->namesListed(), (QStringList{u"заметки"_s, u"заметки"_s, u"Агент"_s}));
        QCOMPARE(newCalls(),
                 (QList<QStringList>{{u"install"_s, u"PHONE-1"_s, m->notesIPA}, {u"apps"_s, u"PHONE-1"_s}}));
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
        QVERIFY(m->find("installButton")->isEnabled());
        m->press("reloadApps");
        EVENTUALLY_EQUAL(m->namesListed(), (QStringList{u"Агент"_s, u"заметки"_s, u"заметки"_s}));
        EVENTUALLY(!m->isBusy());
    }

    void declines()
    {
        QVERIFY(chooseBoth());
        const QString before = m->status();
        m->press("installButton");
        QVERIFY(m->answerAlert(u"Отмена"_s));
        m->press("installButton");
        QTest::keyClick(m->alert(), Qt::Key_Escape);
        EVENTUALLY(!m->alert());
        QVERIFY(!m->isBusy());
        QCOMPARE(m->status(), before);
        QCOMPARE(newCalls(), QList<QStringList>());
    }

    void explainsFailures_data()
    {
        // What the tool says to the installing and how it ends, the version that is there; the explanation.
        const Rows<QString, int, QString, QString, int> row; // how many calls
        const QString unconfirmed =
            u"iOS сообщила об установке, но повторное чтение не подтвердило нужную версию."_s;
        const QString refused = u"iOS не подтвердила установку."_s;
        const QString full = u"На телефоне не хватает места."_s;
        row("said to be done, but the old version is there", kDone, 0, u"2.0"_s, unconfirmed, 2);
        row("said to be done, but a version that looks the same", kDone, 0, u"2.1.0"_s, unconfirmed, 2);
        row("said to be done, but the apps cannot be read", kDone, 0, {}, u"Телефон заблокирован."_s, 2);
        row("ended well, but nothing said", u"{}"_s, 0, u"2.1"_s, refused, 1);
        row("said to be done, but ended badly", kDone, 1, u"2.1"_s, refused, 1);
        row("refused with a reason", u"{\"success\":false,\"error\":\"%1\"}"_s.arg(full), 0, u"2.1"_s, full,
            1);
        row("a damaged archive never reaches the phone", kDone, 0, u"2.1"_s,
            u"IPA повреждён или не является ZIP-архивом."_s, 0);
    }

    void explainsFailures()
    {
        const auto &[said, code, version, sentence, calls] = Row<QString, int, QString, QString, int>();
        QVERIFY(chooseBoth());
        QVERIFY(calls > 0 || QFile::resize(m->notesIPA, 100));
        const QStringList listed = m->namesListed();
        {
            const QString apps =
                uR"({"apps":[{"id":"com.example.notes","version":"%1"},{"id":"com.example.other","version":"2.1"}]})"_s;
            Scenario tool = m->tools.add(u"devicezarvo"_s);
            tool.when({u"install"}).prints(said).exits(code);
            tool.when({u"apps"}).prints(version.isEmpty() ? uR"({"error":"Телефон заблокирован."})"_s
                                                          : apps.arg(version));
            tool.when({u"devices"})
                .prints(uR"({"devices":[{"id":"PHONE-1","name":"Телефон","ios":"17.4"}]})");
        }
        m->press("installButton");
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY_EQUAL(m->alertTexts(), (QStringList{u"Операция не выполнена"_s, sentence}));
        QCOMPARE(m->status(), sentence);
        QCOMPARE(newCalls().size(), calls);
        QCOMPARE(m->namesListed(), listed);
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
    }

    // The phone is unplugged, and another one comes, while the question is open.
    void installsWhatWasConfirmed()
    {
        QVERIFY(chooseBoth());
        m->press("installButton");
        m->playDevice([](Scenario &tool) {
            tool.when({u"devices"}).prints(uR"({"devices":[{"id":"PHONE-2","name":"Другой","ios":"16.1"}]})");
            tool.when({u"install"}).prints(kDone);
            tool.when({u"apps"}).prints(kInstalled);
        });
        m->ask("refresh");
        EVENTUALLY_EQUAL(m->phonesListed().value(1), u"Другой · iOS 16.1"_s);
        QCOMPARE(m->namesListed(), QStringList());
        QVERIFY(m->alertTexts().value(1).contains(u"Телефон · iOS 17.4"));
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY_EQUAL(m->status(), kConfirmed);
        EVENTUALLY(!m->isBusy());
        QCOMPARE(newCalls().value(0), (QStringList{u"install"_s, u"PHONE-1"_s, m->notesIPA}));
        QCOMPARE(m->namesListed(), QStringList()); // the list of a phone that is not chosen any more
    }

    void cancels()
    {
        QVERIFY(chooseBoth());
        m->playDevice([](Scenario &tool) { tool.when({u"install"}).sleeps(kLong); });
        m->press("installButton");
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY_EQUAL(newCalls().size(), 1);
        const pid_t child = m->tools.events(u"devicezarvo"_s, u"call").last()["pid"_L1].toInt();
        m->press("cancelButton");
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), u"Операция отменена."_s);
        QVERIFY(!m->alert());
        EVENTUALLY(!IsProcessAlive(child));
        QCOMPARE(newCalls().size(), 1);
    }

    void needsFileAndPhone()
    {
        QVERIFY(m->startWithApps());
        m->ask("installButton");
        QVERIFY(!m->alert());
        QVERIFY(m->chooseIPA(m->notesIPA));
        m->choosePhone(Qt::Key_Home);
        QVERIFY(!m->find("installButton")->isEnabled());
        m->ask("installButton");
        QVERIFY(!m->alert());
        QVERIFY(m->chooseIPA(m->tools.toolPath(u"ipatool"_s)));
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s); // only an IPA can be chosen
    }

    // Where no file manager can be asked to select a file: its folder is opened.
    void showsTheFile()
    {
        const OpenedFiles opened;
        QVERIFY(m->startWithApps());
        m->press("reveal"); // nothing to show yet
        QVERIFY(m->chooseIPA(m->notesIPA));
        m->press("reveal");
        EVENTUALLY_EQUAL(opened.paths, QStringList{m->tools.path()});
        QVERIFY(m->chooseApp(u"Карты"_s) && m->download());
        EVENTUALLY(!m->isBusy());
        QVERIFY(m->chooseIPA(m->notesIPA));
        m->press("reveal"); // what was saved goes before what was chosen
        EVENTUALLY_EQUAL(opened.paths.value(1), m->destination.path());
    }
};

QTEST_MAIN(WindowInstallTest)
#include "tst_window_install.moc"
