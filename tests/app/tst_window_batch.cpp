#include "app/window_fixture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <optional>

using namespace Qt::StringLiterals;

using Preparation = std::function<void(Program &)>;

namespace {

constexpr auto kLong = std::chrono::milliseconds(3 * kPatience); // what ends earlier was ended
constexpr QStringView kFoldersName = u"^iPhone-IPA-[0-9A-F]{8}$";
constexpr QStringView kCancelled = u"Операция отменена.";
constexpr QStringView kRefused = u"Получен IPA другого приложения. Файл не принят.";

QString pathOf(const Program &program, const QString &folder, const QString &name)
{
    return u"%1/%2/%3"_s.arg(program.destination.path(), folder, name);
}

/// The report in the folder, as {bundle identifier, status, file or reason} for each entry; empty when there
/// is none that can be read.
QList<QStringList> reportIn(const QString &folder)
{
    const QJsonArray array = QJsonDocument::fromJson(ContentOf(folder + u"/report.json"_s)).array();
    QList<QStringList> report;
    for (const auto &element : array) {
        const QJsonObject entry = element.toObject();
        QStringList told{entry["bundleID"_L1].toString(), entry["status"_L1].toString()};
        for (const auto key : {"file"_L1, "reason"_L1}) {
            if (entry.contains(key))
                told << entry[key].toString();
        }
        report << told;
    }
    return report;
}

} // namespace

class WindowBatchTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup();

    void goesOnAfterAFailure();
    void reportsEveryAppAtOnce();
    void stopsEarly_data();
    void stopsEarly();
    void failsAsAWhole_data();
    void failsAsAWhole();
    void doesNothingWithoutFolderOrApps();

private:
    QString folder() const { return m->destination.filePath(m->saved().value(0)); }
    /// The store tool waits for "go" when asked for this app.
    void holdBack(const QString &app)
    {
        m->playStore([&](Scenario &tool) {
            tool.when({u"download", app}).awaits(m->tools.filePath(u"go"_s)).copies(m->notesIPA);
            tool.prints(u"{\"success\":true}");
        });
    }

    const QStringList pairRefused{u"com.example.pair"_s, u"failed"_s, kRefused.toString()};
    const QStringList notesNotYet{u"com.example.notes"_s, u"not_attempted"_s};
    const QStringList mapsNotYet{u"com.example.maps"_s, u"not_attempted"_s};
    std::optional<Program> m;
};

// Whatever happened: no working folder stays, neither in the batch folder nor among the temporary ones.
void WindowBatchTest::cleanup()
{
    const QStringList folders = m->saved();
    for (const QString &name : folders)
        EVENTUALLY_EQUAL(PrivateFoldersIn(m->destination.filePath(name), u".zarvo-"), QStringList());
    EVENTUALLY_EQUAL(m->temporary.leftovers(), QStringList());
    m.reset();
}

void WindowBatchTest::goesOnAfterAFailure()
{
    QVERIFY(m->startWithApps());
    m->type("search", u"КАР"_s); // the batch is about all apps, not about those shown
    for (const int batch : {1, 2}) {
        QVERIFY(m->downloadAll([](QFileDialog &chooser) {
            QCOMPARE(
                chooser.windowTitle(),
                u"Будет обработан весь список: 3 приложений. Недоступные приложения будут отмечены в отчёте."_s);
        }));
        QCOMPARE(m->status(), u"Проверка входа…"_s);
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), u"Сохранено: 2, ошибок: 1. Отчёт — report.json."_s);
        QVERIFY(!m->alert());
        QCOMPARE(m->saved().size(), batch);
    }
    const QStringList folders = m->saved();
    for (const QString &name : folders) {
        QVERIFY2(QRegularExpression(kFoldersName.toString()).match(name).hasMatch(), qPrintable(name));
        const QFileInfo report(pathOf(*m, name, u"report.json"_s));
        QCOMPARE(report.permissions() & ~(QFile::ReadUser | QFile::WriteUser),
                 QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(ContentOf(pathOf(*m, name, u"Карты-1.5.ipa"_s)), ContentOf(m->mapsIPA));
        QCOMPARE(ContentOf(pathOf(*m, name, u"заметки-2.1.ipa"_s)), ContentOf(m->notesIPA));
    }
    QVERIFY(folders.contains(QFileInfo(m->transfer()).fileName()));
    QCOMPARE(m->text("ipaLabel"), u"IPA не выбран"_s); // what a single download saves is offered; this is not

    const QJsonArray report = QJsonDocument::fromJson(ContentOf(folder() + u"/report.json"_s)).array();
    const QJsonObject pair{{u"name"_s, u"Tom & <b>Jerry</b>"_s},
                           {u"bundleID"_s, u"com.example.pair"_s},
                           {u"installedVersion"_s, u"1"_s},
                           {u"status"_s, u"failed"_s},
                           {u"reason"_s, kRefused.toString()}};
    const QJsonObject notes{{u"name"_s, u"заметки"_s},
                            {u"bundleID"_s, u"com.example.notes"_s},
                            {u"installedVersion"_s, u"2.0"_s},
                            {u"status"_s, u"downloaded"_s},
                            {u"file"_s, u"заметки-2.1.ipa"_s}};
    const QJsonObject maps{{u"name"_s, u"Карты"_s},
                           {u"bundleID"_s, u"com.example.maps"_s},
                           {u"installedVersion"_s, u"1.5"_s},
                           {u"status"_s, u"downloaded"_s},
                           {u"file"_s, u"Карты-1.5.ipa"_s}};
    QCOMPARE(report, (QJsonArray{pair, notes, maps}));

    QStringList asked; // of the second batch
    const QList<QStringList> calls = m->tools.calls(u"ipatool"_s);
    for (const QStringList &call : calls.last(6))
        asked << (call.contains(u"download"_s) ? call.sliced(8).join(u' ') : call.value(3));
    QCOMPARE(asked, (QStringList{u"auth"_s, u"list-purchases"_s, u"--bundle-identifier com.example.pair"_s,
                                 u"list-purchases"_s, u"--bundle-identifier com.example.notes"_s,
                                 u"--app-id 123 --external-version-id 456"_s}));
}

void WindowBatchTest::reportsEveryAppAtOnce()
{
    QVERIFY(m->startWithApps());
    holdBack(u"com.example.notes"_s);
    m->find("exactVersion")->setChecked(false);
    QVERIFY(m->downloadAll());
    EVENTUALLY_EQUAL(reportIn(folder()), (QList{pairRefused, notesNotYet, mapsNotYet}));
    m->tools.touch(u"go"_s);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(reportIn(folder()).size(), 3);
    QVERIFY(!m->tools.calls(u"ipatool"_s).last().contains(u"--external-version-id"_s));
}

void WindowBatchTest::stopsEarly_data()
{
    QTest::addColumn<Rules>("store");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QStringList>("last"); // the entry after which it stopped, if it came to one
    QTest::addColumn<QString>("status");
    const Rules signInNeeded = [](Scenario &tool) {
        tool.when({u"download", u"com.example.notes"})
            .prints(uR"({"error":"keychain is empty","success":false})")
            .exits(1);
    };
    QTest::newRow("a new sign-in is needed: no alert, the rest is not attempted")
        << signInNeeded << false << QStringList{u"failed"_s, u"Нужен вход"_s}
        << u"Сохранено: 0, ошибок: 2. Отчёт — report.json."_s;
    QTest::newRow("cancelled during a download: that one is cancelled, the rest is not attempted")
        << Rules([](Scenario &tool) {
               tool.when({u"download", u"com.example.notes"}).sleeps(kLong);
           })
        << true << QStringList{u"cancelled"_s, u"Операция отменена"_s} << kCancelled.toString();
    QTest::newRow("cancelled during the check of the account: no folder") << Rules([](Scenario &tool) {
        tool.when({u"auth", u"info"}).sleeps(kLong);
    }) << true << QStringList() << kCancelled.toString();
}

void WindowBatchTest::stopsEarly()
{
    QFETCH(const Rules, store);
    QFETCH(const bool, cancel);
    QFETCH(const QStringList, last);
    QVERIFY(m->startWithApps());
    m->playStore(store);
    const qsizetype known = m->tools.calls(u"ipatool"_s).size();
    QVERIFY(m->downloadAll());
    const auto calls = [&] { return m->tools.calls(u"ipatool"_s).size() - known; };
    EVENTUALLY(last.isEmpty() ? calls() == 1 : calls() == 5); // the last one is that which decides
    if (cancel)
        m->press("cancelButton");
    EVENTUALLY(!m->isBusy());
    QTEST(m->status(), "status");
    QVERIFY(!m->alert());
    QCOMPARE(calls(), last.isEmpty() ? 1 : 5);
    if (last.isEmpty()) {
        QCOMPARE(m->saved(), QStringList());
        return;
    }
    QCOMPARE(m->transfer(), folder());
    QList<QStringList> report = reportIn(folder());
    QCOMPARE(report.size(), 3);
    QCOMPARE(report[1].value(2).section(u" в "_s, 0, 0), last[1]);
    QCOMPARE(report.takeAt(1).value(1), last[0]);
    QCOMPARE(report, (QList{pairRefused, mapsNotYet}));
}

void WindowBatchTest::failsAsAWhole_data()
{
    QTest::addColumn<Rules>("store");
    QTest::addColumn<Preparation>("afterChoosing");
    QTest::addColumn<Preparation>("duringTheSecond");
    QTest::addColumn<QString>("sentence"); // how the explanation starts
    QTest::newRow("the account is not confirmed: no folder") << Rules([](Scenario &tool) {
        tool.when({u"auth", u"info"}).prints(u"{}");
    }) << Preparation() << Preparation() << u"Вход не подтверждён. Выполните вход в Apple Account."_s;
    QTest::newRow("the chosen folder is gone")
        << Rules() << Preparation([](Program &program) { QVERIFY(program.destination.remove()); })
        << Preparation() << u"Не удалось создать папку «"_s;
    QTest::newRow("no place for the report: the former one stays")
        << Rules() << Preparation() << Preparation([](Program &program) {
               QVERIFY(QFile::rename(program.destination.filePath(program.saved().value(0)),
                                     program.destination.filePath(u"away"_s)));
           })
        << u"Не удалось создать рабочую папку в «"_s;
    QTest::newRow("the report cannot be replaced")
        << Rules() << Preparation() << Preparation([](Program &program) {
               const QString report = pathOf(program, program.saved().value(0), u"report.json"_s);
               QVERIFY(QFile::rename(report, report + u".away"_s) && QDir().mkpath(report));
           })
        << u"Не удалось записать отчёт «report.json»: Это каталог"_s;
}

void WindowBatchTest::failsAsAWhole()
{
    QFETCH(const Rules, store);
    QFETCH(const Preparation, afterChoosing);
    QFETCH(const Preparation, duringTheSecond);
    QFETCH(const QString, sentence);
    QVERIFY(m->startWithApps());
    if (duringTheSecond)
        holdBack(u"com.example.notes"_s);
    else
        m->playStore(store);
    QVERIFY(m->downloadAll({}, [&] {
        if (afterChoosing)
            afterChoosing(*m);
    }));
    if (duringTheSecond) {
        EVENTUALLY_EQUAL(reportIn(folder()).size(), 3);
        QVERIFY(m->tools.waitForCalls(u"ipatool"_s, 6));
        duringTheSecond(*m);
        m->tools.touch(u"go"_s);
    }
    EVENTUALLY(m->alert());
    QVERIFY2(m->status().startsWith(sentence), qPrintable(m->status()));
    QCOMPARE(m->transfer(), QString());
    QCOMPARE(m->tools.calls(u"ipatool"_s).size(), duringTheSecond ? 6 : 2); // nothing more was asked
    QCOMPARE(m->saved().size(), duringTheSecond ? 1 : 0);
    const QString away = m->destination.filePath(u"away"_s);
    if (QFileInfo::exists(away))
        QCOMPARE(reportIn(away), (QList{pairRefused, notesNotYet, mapsNotYet}));
    QDir(away).removeRecursively(); // with the working folder that was moved away from its owner
}

void WindowBatchTest::doesNothingWithoutFolderOrApps()
{
    QVERIFY(m->startWithApps());
    const QString before = m->status();
    QVERIFY(m->downloadAll([](QFileDialog &chooser) { chooser.reject(); }));
    QVERIFY(!m->isBusy());
    QCOMPARE(m->status(), before);
    m->playDevice([](Scenario &tool) { tool.when({u"apps"}).prints(u"{}"); });
    m->press("reloadApps");
    EVENTUALLY(!m->isBusy());
    m->ask("allButton"); // a chooser would hold this up for ever
    QVERIFY(!m->isBusy());
}

QTEST_MAIN(WindowBatchTest)
#include "tst_window_batch.moc"
