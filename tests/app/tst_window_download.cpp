#include "app/window_fixture.h"
#include "ipa_writer.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Preparation = std::function<void(Program &)>;

namespace {

const QStringList kGlobal{u"--non-interactive"_s, u"--format"_s, u"json"_s};
constexpr auto kLong = 3ms * kPatience; // what ends earlier was ended
constexpr QStringView kMaps = u"Карты-1.5.ipa";
constexpr QStringView kRefusedVersion =
    u"Apple вернула другую версию. IPA не принят как точная копия установленной версии.";

QStringList argumentsOfPage(int page)
{
    return kGlobal + QStringList{u"list-purchases"_s, u"--page"_s, QString::number(page),
                                 u"--max-results"_s,  u"100"_s,    u"--platform"_s,
                                 u"iphone"_s};
}

/// The calls of the store tool from the download's own confirmation of the account on, `known` calls having
/// been made.
QList<QStringList> newCalls(const Program &program, qsizetype known)
{
    return program.tools.calls(u"ipatool"_s).sliced(known);
}

} // namespace

class WindowDownloadTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup();

    void savesTheChosenApp();
    void takesTheSameFileTwice();
    void asksForTheRightFile_data();
    void asksForTheRightFile();
    void keepsTheIdentifierOfAPhoneThatGoes();
    void refusesTypedIdentifiers();
    void doesNothingWithoutFolder();
    void explainsFailures_data();
    void explainsFailures();
    void explainsWithoutWhatItKnows();
    void cancels_data();
    void cancels();

private:
    std::optional<Program> m;
};

// Whatever happened: no working folder stays, neither beside the file nor among the temporary ones.
void WindowDownloadTest::cleanup()
{
    EVENTUALLY_EQUAL(PrivateFoldersIn(m->destination.path(), u".zarvo-"), QStringList());
    EVENTUALLY_EQUAL(m->temporary.leftovers(), QStringList());
    m.reset();
}

void WindowDownloadTest::savesTheChosenApp()
{
    m->playStore([&](Scenario &tool) {
        tool.when({u"download"}).grows(2'500'000, 1ms).awaits(m->tools.filePath(u"go"_s)).copies(m->mapsIPA);
        tool.prints(u"{\"success\":true}");
    });
    QVERIFY(m->startWithApps());
    for (const char *button : {"downloadButton", "installButton"}) // neither an app is chosen nor a file
        QVERIFY2(!m->find(button)->isEnabled(), button);
    m->type("search", u"КАР"_s);
    QCOMPARE(m->namesListed(), QStringList{u"Карты"_s});
    QVERIFY(m->chooseApp(u"Карты"_s));
    QCOMPARE(m->find<QLineEdit>("storeID")->text(), u"123"_s);
    QCOMPARE(m->text("ownerLabel"), u"Выбрано: Карты 1.5 • аккаунт исходной установки: first@example.com"_s);

    const QString message = u"IPA будет загружен с серверов Apple через аккаунт владельца."_s;
    QVERIFY(m->download([&](QFileDialog &chooser) {
        QCOMPARE(chooser.windowTitle(), message);
        QCOMPARE(chooser.fileMode(), QFileDialog::Directory);
        const auto labels = chooser.findChildren<QLabel *>();
        QVERIFY(std::any_of(labels.begin(), labels.end(),
                            [&](const QLabel *label) { return label->text() == message; }));
    }));
    EVENTUALLY_EQUAL(m->status(), u"Загрузка: Карты"_s);
    EVENTUALLY_EQUAL(m->transfer().section(u'•', 0, 0).simplified(), u"Получено 2,5 МБ"_s);
    const QStringList working = PrivateFoldersIn(m->destination.path(), u".zarvo-");
    QCOMPARE(m->saved(), working);
    m->tools.touch(u"go"_s);

    EVENTUALLY_EQUAL(m->status(), u"IPA сохранён: Карты-1.5.ipa"_s);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(m->transfer(), m->destination.filePath(kMaps.toString()));
    QCOMPARE(m->text("ipaLabel"), kMaps);
    QCOMPARE(m->text("accountLabel"), u"Вход выполнен: owner@example.com"_s);
    QVERIFY(m->find("installButton")->isEnabled());
    QCOMPARE(m->saved(), QStringList{kMaps.toString()});
    QCOMPARE(m->savedBytes(kMaps.toString()), ContentOf(m->mapsIPA));
    const QStringList info = kGlobal + QStringList{u"auth"_s, u"info"_s};
    const QString output = u"%1/%2/download.ipa"_s.arg(m->destination.path(), working.value(0));
    const QStringList download{u"download"_s, u"--output"_s, output,   u"--platform"_s,
                               u"iphone"_s,   u"--app-id"_s, u"123"_s, u"--external-version-id"_s,
                               u"456"_s};
    QCOMPARE(m->tools.calls(u"ipatool"_s), (QList{info, info, kGlobal + download}));
}

void WindowDownloadTest::takesTheSameFileTwice()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    for (int run = 0; run < 2; ++run) {
        QVERIFY(m->download());
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), u"IPA сохранён: Карты-1.5.ipa"_s);
        QCOMPARE(m->saved(), QStringList{kMaps.toString()});
    }
    QCOMPARE(m->savedBytes(kMaps.toString()), ContentOf(m->mapsIPA));
}

void WindowDownloadTest::asksForTheRightFile_data()
{
    QTest::addColumn<QString>("app");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("exact");
    QTest::addColumn<Rules>("purchases");
    QTest::addColumn<int>("pages");
    QTest::addColumn<QString>("asked");
    const auto row = [](const char *name, const QString &app, const QString &typed, bool exact,
                        const QString &asked, int pages = 0, const Rules &purchases = {}) {
        QTest::newRow(name) << app << typed << exact << purchases << pages << asked;
    };
    const QString maps = u"Карты"_s;
    const QString notes = u"заметки"_s;
    const QString byBundle = u"--bundle-identifier com.example.notes"_s;
    const auto others = [](const QString &more) {
        return [=](Scenario &tool) {
            tool.when({u"list-purchases", u"3"})
                .prints(uR"({"apps":[{"bundleID":"com.example.notes","id":777}]})");
            tool.when({u"list-purchases"}).prints(uR"({"apps":[{"bundleID":"x","id":1}]%1})"_s.arg(more));
        };
    };
    row("field empty: the phone's identifier", maps, {}, true, u"--app-id 123 --external-version-id 456"_s);
    row("any version", maps, u"123"_s, false, u"--app-id 123"_s);
    row("typed with blanks, version not known", notes, u" 777 "_s, true, u"--app-id 777"_s);
    row("nothing purchased", notes, {}, true, byBundle, 1);
    row("on the third page", notes, {}, true, u"--app-id 777"_s, 3, others(uR"(,"totalCount":1000)"_s));
    row("ended by the total", notes, {}, true, byBundle, 2, others(uR"(,"totalCount":150)"_s));
    row("never ending", notes, {}, true, byBundle, 100, [](Scenario &tool) {
        tool.when({u"list-purchases"}).prints(uR"({"apps":[{"bundleID":"x","id":1}]})");
    });
}

void WindowDownloadTest::asksForTheRightFile()
{
    QFETCH(const QString, app);
    QFETCH(const QString, typed);
    QFETCH(const bool, exact);
    QFETCH(const int, pages);
    QFETCH(const Rules, purchases);
    m->playStore(purchases);
    QVERIFY(m->startWithApps() && m->chooseApp(app));
    m->type("storeID", typed);
    m->find("exactVersion")->setChecked(exact);
    const qsizetype known = m->tools.calls(u"ipatool"_s).size();
    QVERIFY(m->download());
    QTRY_VERIFY_WITH_TIMEOUT(!m->isBusy(), 4 * kPatience);
    // The file's own version names it, not the installed one.
    const QString saved = app == u"Карты"_s ? kMaps.toString() : u"заметки-2.1.ipa"_s;
    QCOMPARE(m->status(), u"IPA сохранён: %1"_s.arg(saved));
    QCOMPARE(m->saved(), QStringList{saved});
    const QList<QStringList> calls = newCalls(*m, known);
    QCOMPARE(calls.size(), pages + 2); // the account before, the download after
    for (int page = 1; page <= pages; ++page)
        QCOMPARE(calls[page], argumentsOfPage(page));
    QTEST(calls.last().sliced(8).join(u' '), "asked");
}

void WindowDownloadTest::keepsTheIdentifierOfAPhoneThatGoes()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"заметки"_s));
    m->type("storeID", u"777"_s);
    QVERIFY(m->download([&](QFileDialog &) {
        m->playDevice([](Scenario &tool) { tool.when({u"devices"}).prints(u"{}"); });
        m->ask("refresh");
        EVENTUALLY_EQUAL(m->phonesListed().size(), 1);
    }));
    EVENTUALLY(!m->saved().isEmpty() && !m->isBusy());
    QCOMPARE(m->tools.calls(u"ipatool"_s).last().sliced(8), (QStringList{u"--app-id"_s, u"777"_s}));
    QVERIFY(!m->find("installButton")->isEnabled()); // a file, but no phone
}

void WindowDownloadTest::refusesTypedIdentifiers()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    const qsizetype known = m->tools.calls(u"ipatool"_s).size();
    for (const QString &typed : {u"0"_s, u"-5"_s, u"12a"_s}) {
        m->type("storeID", typed);
        QVERIFY(m->download());
        QCOMPARE(m->status(), u"ID App Store должен быть положительным целым числом."_s);
        QVERIFY(!m->isBusy() && !m->alert());
        QCOMPARE(m->saved(), QStringList());
    }
    QCOMPARE(newCalls(*m, known), QList<QStringList>());
}

void WindowDownloadTest::doesNothingWithoutFolder()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    const QString before = m->status();
    QVERIFY(m->download([](QFileDialog &chooser) { chooser.reject(); }));
    QVERIFY(!m->isBusy());
    QCOMPARE(m->status(), before);
}

void WindowDownloadTest::explainsFailures_data()
{
    QTest::addColumn<Preparation>("prepare");
    QTest::addColumn<Preparation>("afterChoosing");
    QTest::addColumn<QString>("sentence"); // how the explanation starts
    QTest::addColumn<QString>("app");
    const auto row = [](const char *name, const QString &sentence, const Preparation &prepare,
                        const Preparation &afterChoosing = {}, const QString &app = u"Карты"_s) {
        QTest::newRow(name) << prepare << afterChoosing << sentence << app;
    };
    const auto store = [](std::initializer_list<QStringView> when, const QString &printed, int code) {
        return [words = QList<QStringView>(when), printed, code](Program &program) {
            program.playStore([&](Scenario &tool) {
                (words.size() == 1 ? tool.when({words[0]}) : tool.when({words[0], words[1]}))
                    .prints(printed)
                    .exits(code);
            });
        };
    };
    const auto downloaded = [](const QByteArray &content) {
        return [content](Program &program) {
            program.playStore([&](Scenario &tool) {
                QFile file(program.tools.filePath(u"other"_s));
                QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
                tool.when({u"download"}).copies(file.fileName()).prints(u"{\"success\":true}");
            });
        };
    };
    row("not signed in, says the tool", u"Нужен вход в Apple Account"_s,
        store({u"auth", u"info"},
              uR"({"error":"failed to get account: keychain is empty","success":false})"_s, 1));
    row("not signed in, says nobody", u"Вход не подтверждён. Выполните вход в Apple Account."_s,
        store({u"auth", u"info"}, uR"({"email":"owner@example.com"})"_s, 0));
    row("the folder is gone", u"Не удалось создать рабочую папку в «"_s, {},
        [](Program &program) { QVERIFY(program.destination.remove()); });
    row("the purchases cannot be read", u"Сервис ограничил частоту запросов. Повторите позже."_s,
        store({u"list-purchases"}, uR"({"error":"status 429","success":false})"_s, 1), {}, u"заметки"_s);
    row("the tool fails", u"Apple требует лицензию этого аккаунта."_s,
        store({u"download"}, uR"({"error":"license is required","success":false})"_s, 1));
    row("the tool saves nothing", u"IPA повреждён или не является ZIP-архивом."_s,
        store({u"download"}, uR"({"success":true})"_s, 0));
    row("no archive", u"IPA повреждён или не является ZIP-архивом."_s, downloaded("<html>"));
    row("another app", u"Получен IPA другого приложения. Файл не принят."_s, [](Program &program) {
        program.playStore(
            [&](Scenario &tool) { tool.when({u"download"}).copies(program.notesIPA).prints(u"{}"); });
    });
    row("another version", kRefusedVersion.toString(), [](Program &program) {
        const QString newer = program.tools.filePath(u"newer.ipa"_s);
        QVERIFY(writeIPA(newer.toStdString(), {.id = u"com.example.maps"_s, .version = u"1.6"_s}));
        program.playStore([&](Scenario &tool) { tool.when({u"download"}).copies(newer).prints(u"{}"); });
    });
    row("another file of that name", u"В выбранной папке уже есть другой файл с таким именем."_s,
        [](Program &program) {
            QFile file(program.destination.filePath(kMaps.toString()));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("mine") == 4);
        });
}

void WindowDownloadTest::explainsFailures()
{
    QFETCH(const Preparation, prepare);
    QFETCH(const Preparation, afterChoosing);
    QFETCH(const QString, sentence);
    QFETCH(const QString, app);
    if (prepare)
        prepare(*m);
    const QStringList before = m->saved();
    QVERIFY(m->startWithApps() && m->chooseApp(app));
    QVERIFY(m->download({}, [&] {
        if (afterChoosing)
            afterChoosing(*m);
    }));
    EVENTUALLY(m->alert());
    const auto labels = m->alert()->findChildren<QLabel *>();
    QCOMPARE(labels.value(0)->text(), u"Операция не выполнена"_s);
    QCOMPARE(labels.value(1)->text(), m->status());
    QCOMPARE(m->status().left(sentence.size()), sentence);
    QCOMPARE(m->transfer(), QString());
    QVERIFY(!m->isBusy());
    QCOMPARE(m->saved(), before);
    QCOMPARE(m->savedBytes(kMaps.toString()), before.isEmpty() ? QByteArray() : QByteArray("mine"));
    QCOMPARE(m->text("ipaLabel"), u"IPA не выбран"_s);
    QVERIFY(m->answerAlert(u"Понятно"_s));
}

// The tool names what no rule could recognise: an account that is a number and that only this job has met,
// the phone, and a home folder of any kind.
void WindowDownloadTest::explainsWithoutWhatItKnows()
{
    m->playStore([](Scenario &tool) {
        tool.when({u"auth", u"info"}).times(1).prints(u"{}");
        tool.when({u"auth", u"info"}).prints(uR"({"email":"+79165550142","success":true})");
        tool.when({u"download"})
            .prints(
                uR"({"error":"no license of 8 (916) 555-01-42 for phone-1 in %1/x"})"_s.arg(QDir::homePath()))
            .exits(1);
    });
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    QVERIFY(m->download());
    EVENTUALLY(m->alert());
    QCOMPARE(m->status().section(u"Причина: "_s, 1),
             u"no license of 8 [аккаунт скрыт] for [устройство скрыто] in /Users/[пользователь]/x"_s);
    QVERIFY(m->answerAlert(u"Понятно"_s));
    // What was met once in this run stays known.
    m->playStore([](Scenario &tool) {
        tool.when({u"auth", u"info"}).prints(uR"({"error":"session of 79165550142 is over"})").exits(1);
    });
    m->press("checkAccount");
    EVENTUALLY(m->alert());
    QCOMPARE(m->status().section(u"Причина: "_s, 1), u"session of [аккаунт скрыт] is over"_s);
}

void WindowDownloadTest::cancels_data()
{
    QTest::addColumn<QStringList>("call");
    QTest::addColumn<QString>("transfer"); // the first word of the line, which stays
    QTest::newRow("while the account is confirmed") << QStringList{u"auth"_s, u"info"_s} << u""_s;
    QTest::newRow("while purchases are listed")
        << QStringList{u"list-purchases"_s, u"--page"_s} << u"Поиск"_s;
    QTest::newRow("while the file comes") << QStringList{u"download"_s, u"--output"_s} << u"Получено"_s;
}

void WindowDownloadTest::cancels()
{
    QFETCH(const QStringList, call);
    QVERIFY(m->startWithApps() && m->chooseApp(u"заметки"_s));
    const qsizetype known = m->tools.calls(u"ipatool"_s).size();
    m->playStore([&](Scenario &tool) { tool.when({call[0], call[1]}).sleeps(kLong); });
    QVERIFY(m->download());
    EVENTUALLY(newCalls(*m, known).size() > 0 && newCalls(*m, known).last().contains(call[1]));
    EVENTUALLY(call[0] == "auth"_L1 || !m->transfer().isEmpty());
    const pid_t child = m->tools.events(u"ipatool"_s, u"call").last().value("pid"_L1).toInt();
    m->press("cancelButton");
    EVENTUALLY(!m->isBusy());
    QCOMPARE(m->status(), u"Операция отменена."_s);
    QTEST(m->transfer().section(u' ', 0, 0), "transfer");
    QVERIFY(!m->alert());
    QCOMPARE(m->saved(), QStringList());
    EVENTUALLY(!IsProcessAlive(child));
}

QTEST_MAIN(WindowDownloadTest)
#include "tst_window_download.moc"
