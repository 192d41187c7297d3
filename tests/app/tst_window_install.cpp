#include "app/window_fixture.h"

#include <QDesktopServices>
#include <QFile>
#include <QUrl>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kLong = std::chrono::milliseconds(3 * kPatience); // what ends earlier was ended
constexpr QStringView kQuestion = u"Установить IPA на выбранный iPhone?";
constexpr QStringView kConfirmed =
    u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться "
    "Apple Account владельца лицензии.";
constexpr QStringView kUnconfirmed =
    u"iOS сообщила об установке, но повторное чтение не подтвердило нужную версию.";
constexpr QStringView kRefused = u"iOS не подтвердила установку.";
/// Two entries of one app, one of them in the IPA's version, and not in the order of names.
constexpr QStringView kInstalled = uR"({"apps":[{"id":"com.example.notes","name":"заметки","version":"2.0"},)"
                                   uR"({"id":"com.example.notes","name":"заметки","version":"2.1"},)"
                                   uR"({"id":"com.example.other","name":"Агент","version":"1"}]})";

} // namespace

/// Opens in place of the desktop.
class Opened : public QObject
{
    Q_OBJECT

public:
    QStringList paths;

public Q_SLOTS:
    void open(const QUrl &url) { paths << url.toLocalFile(); }
};

class WindowInstallTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup();

    void installsAndReadsAgain();
    void declines();
    void explainsFailures_data();
    void explainsFailures();
    void installsWhatWasConfirmed();
    void cancels();
    void needsFileAndPhone();
    void showsTheFile();

private:
    /// How the phone answers to the installing and to the reading after it.
    void answer(QStringView install, int code, QStringView apps)
    {
        m->playDevice([&](Scenario &tool) {
            tool.when({u"install"}).prints(install).exits(code);
            tool.when({u"apps"}).prints(apps);
        });
    }
    /// The calls of the device tool but for the polls, `known` ones left out.
    QList<QStringList> newCalls(qsizetype known = 0) const
    {
        QList<QStringList> calls = m->tools.calls(u"devicezarvo"_s);
        calls.removeAll(QStringList{u"devices"_s});
        return calls.sliced(known);
    }
    QStringList alertTexts() const
    {
        QStringList texts;
        if (m->alert()) {
            for (const QLabel *label : m->alert()->findChildren<QLabel *>())
                texts << label->text();
        }
        return texts;
    }

    std::optional<Program> m;
};

void WindowInstallTest::cleanup()
{
    EVENTUALLY_EQUAL(m->temporary.leftovers(), QStringList());
    m.reset();
}

void WindowInstallTest::installsAndReadsAgain()
{
    QVERIFY(m->startWithApps() && m->chooseIPA(m->notesIPA));
    QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
    const qsizetype known = newCalls().size();
    const QString go = m->tools.filePath(u"go"_s);
    m->playDevice([&](Scenario &tool) {
        tool.when({u"install"}).awaits(go).prints(u"{\"success\":true}");
        tool.when({u"apps"}).prints(kInstalled);
    });
    m->press("installButton");
    QCOMPARE(alertTexts(),
             (QStringList{kQuestion.toString(),
                          u"notes.ipa\nТелефон · iOS 17.4\nУстановка может заменить существующую "
                          "версию. iOS проверит подпись и лицензию."_s}));
    QVERIFY(!m->isBusy());
    QVERIFY(m->answerAlert(u"Установить"_s));
    QCOMPARE(m->status(), u"Проверка IPA…"_s);
    EVENTUALLY_EQUAL(m->status(), u"Передача IPA и установка на iPhone…"_s);
    m->tools.touch(u"go"_s);
    EVENTUALLY_EQUAL(m->status(), kConfirmed);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(m->namesListed(), (QStringList{u"заметки"_s, u"заметки"_s, u"Агент"_s}));
    QCOMPARE(newCalls(known),
             (QList<QStringList>{{u"install"_s, u"PHONE-1"_s, m->notesIPA}, {u"apps"_s, u"PHONE-1"_s}}));
    QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
    QVERIFY(m->find("installButton")->isEnabled());
    m->press("reloadApps");
    EVENTUALLY_EQUAL(m->namesListed(), (QStringList{u"Агент"_s, u"заметки"_s, u"заметки"_s}));
    EVENTUALLY(!m->isBusy());
}

void WindowInstallTest::declines()
{
    QVERIFY(m->startWithApps() && m->chooseIPA(m->notesIPA));
    const qsizetype known = newCalls().size();
    const QString before = m->status();
    m->press("installButton");
    QVERIFY(m->answerAlert(u"Отмена"_s));
    m->press("installButton");
    QTest::keyClick(m->alert(), Qt::Key_Escape);
    EVENTUALLY(!m->alert());
    QVERIFY(!m->isBusy());
    QCOMPARE(m->status(), before);
    QCOMPARE(newCalls(known), QList<QStringList>());
}

void WindowInstallTest::explainsFailures_data()
{
    QTest::addColumn<bool>("isDamaged");
    QTest::addColumn<QString>("install");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("apps");
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<int>("calls");
    const QString done = u"{\"success\":true}"_s;
    const auto version = [](const char *text) {
        return uR"({"apps":[{"id":"com.example.notes","version":"%1"},{"id":"com.example.other","version":"2.1"}]})"_s
            .arg(QLatin1StringView(text));
    };
    const auto row = [](const char *name, const QString &install, int code, const QString &apps,
                        QStringView sentence, int calls) {
        QTest::newRow(name) << false << install << code << apps << sentence.toString() << calls;
    };
    row("said to be done, but the old version is there", done, 0, version("2.0"), kUnconfirmed, 2);
    row("said to be done, but a version that only looks the same", done, 0, version("2.1.0"), kUnconfirmed,
        2);
    row("said to be done, but the apps cannot be read", done, 0, u"{\"error\":\"Телефон заблокирован.\"}"_s,
        u"Телефон заблокирован.", 2);
    row("ended well, but nothing said", u"{}"_s, 0, version("2.1"), kRefused, 1);
    row("said to be done, but ended badly", done, 1, version("2.1"), kRefused, 1);
    row("refused with a reason", u"{\"success\":false,\"error\":\"На телефоне не хватает места.\"}"_s, 0,
        version("2.1"), u"На телефоне не хватает места.", 1);
    QTest::newRow("a damaged archive never reaches the phone")
        << true << done << 0 << version("2.1") << u"IPA повреждён или не является ZIP-архивом."_s << 0;
}

void WindowInstallTest::explainsFailures()
{
    QFETCH(const bool, isDamaged);
    QFETCH(const QString, install);
    QFETCH(const int, code);
    QFETCH(const QString, apps);
    QFETCH(const QString, sentence);
    QFETCH(const int, calls);
    QVERIFY(m->startWithApps() && m->chooseIPA(m->notesIPA));
    QVERIFY(!isDamaged || QFile::resize(m->notesIPA, 100));
    const qsizetype known = newCalls().size();
    const QStringList listed = m->namesListed();
    answer(install, code, apps);
    m->press("installButton");
    QVERIFY(m->answerAlert(u"Установить"_s));
    EVENTUALLY_EQUAL(alertTexts(), (QStringList{u"Операция не выполнена"_s, sentence}));
    QCOMPARE(m->status(), sentence);
    QCOMPARE(newCalls(known).size(), calls);
    QCOMPARE(m->namesListed(), listed);
    QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
}

// The phone is unplugged, and another one comes, while the question is open.
void WindowInstallTest::installsWhatWasConfirmed()
{
    QVERIFY(m->startWithApps() && m->chooseIPA(m->notesIPA));
    const qsizetype known = newCalls().size();
    m->press("installButton");
    QVERIFY(m->alert());
    m->playDevice([](Scenario &tool) {
        tool.when({u"devices"}).prints(uR"({"devices":[{"id":"PHONE-2","name":"Другой","ios":"16.1"}]})");
        tool.when({u"install"}).prints(u"{\"success\":true}");
        tool.when({u"apps"}).prints(kInstalled);
    });
    m->ask("refresh");
    EVENTUALLY_EQUAL(m->phonesListed().value(1), u"Другой · iOS 16.1"_s);
    QCOMPARE(m->namesListed(), QStringList());
    QVERIFY(alertTexts().value(1).contains(u"Телефон · iOS 17.4"));
    QVERIFY(m->answerAlert(u"Установить"_s));
    EVENTUALLY_EQUAL(m->status(), kConfirmed);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(newCalls(known).value(0), (QStringList{u"install"_s, u"PHONE-1"_s, m->notesIPA}));
    QCOMPARE(m->namesListed(), QStringList()); // the list of a phone that is not chosen any more
}

void WindowInstallTest::cancels()
{
    QVERIFY(m->startWithApps() && m->chooseIPA(m->notesIPA));
    const qsizetype known = newCalls().size();
    m->playDevice([](Scenario &tool) { tool.when({u"install"}).sleeps(kLong); });
    m->press("installButton");
    QVERIFY(m->answerAlert(u"Установить"_s));
    EVENTUALLY_EQUAL(newCalls(known).size(), 1);
    const pid_t child = m->tools.events(u"devicezarvo"_s, u"call").last()["pid"_L1].toInt();
    m->press("cancelButton");
    EVENTUALLY(!m->isBusy());
    QCOMPARE(m->status(), u"Операция отменена."_s);
    QVERIFY(!m->alert());
    EVENTUALLY(!IsProcessAlive(child));
    QCOMPARE(newCalls(known).size(), 1);
}

void WindowInstallTest::needsFileAndPhone()
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
void WindowInstallTest::showsTheFile()
{
    Opened opened;
    QDesktopServices::setUrlHandler(u"file"_s, &opened, "open");
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
    QDesktopServices::unsetUrlHandler(u"file"_s);
}

QTEST_MAIN(WindowInstallTest)
#include "tst_window_install.moc"
