#include "app/window_fixture.h"
#include "support/rows.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

using Preparation = std::function<void(Program &)>;

namespace {

constexpr auto kLong = std::chrono::milliseconds(3 * kPatience); // what ends earlier was ended
const QString kCancelled = u"Операция отменена."_s;
const QString kRefused = u"Получен IPA другого приложения. Файл не принят."_s;
// Entries of a report, as reportIn() gives them.
const QString kPairRefused = u"com.example.pair failed "_s + kRefused;
const QString kNotesNotYet = u"com.example.notes not_attempted "_s;
const QString kMapsNotYet = u"com.example.maps not_attempted "_s;

QString pathOf(const Program &program, const QString &folder, const QString &name)
{
    return u"%1/%2/%3"_s.arg(program.destination.path(), folder, name);
}

/// The report in the folder, as "identifier status file-or-reason" for each entry; empty when there is none
/// that can be read.
QStringList reportIn(const QString &folder)
{
    QStringList report;
    for (const auto entry : QJsonDocument::fromJson(ContentOf(folder + u"/report.json"_s)).array())
        report << entry["bundleID"_L1].toString() + u' ' + entry["status"_L1].toString() + u' ' +
                      entry["file"_L1].toString() + entry["reason"_L1].toString();
    return report;
}

} // namespace

class WindowBatchTest : public ProgramTest
{
    Q_OBJECT

private:
    QString folder() const { return m->destination.filePath(m->saved().value(0)); }
    /// The store tool waits for "go" when asked for the second app.
    void holdBack()
    {
        m->playStore([&](Scenario &tool) {
            tool.when({u"download", u"com.example.notes"}).awaits(m->tools.filePath(u"go"_s));
            tool.copies(m->notesIPA).prints(u"{\"success\":true}");
        });
    }

private Q_SLOTS:
    void goesOnAfterAFailure()
    {
        QVERIFY(m->startWithApps());
        m->type("search", u"КАР"_s); // the batch is about all apps, not about those shown
        for (const int batch : {1, 2}) {
            QVERIFY(m->downloadAll([](QFileDialog &chooser) {
                QCOMPARE(chooser.windowTitle(), u"Будет обработан весь список: 3 приложений. Недоступные "
                                                "приложения будут отмечены в отчёте."_s);
            }));
            QCOMPARE(m->status(), u"Проверка входа…"_s);
            EVENTUALLY(!m->isBusy());
            QCOMPARE(m->status(), u"Сохранено: 2, ошибок: 1. Отчёт — report.json."_s);
            QVERIFY(!m->alert());
            QCOMPARE(m->saved().size(), batch);
        }
        const QStringList folders = m->saved();
        for (const QString &name : folders) {
            QVERIFY(QRegularExpression(u"^iPhone-IPA-[0-9A-F]{8}$"_s).match(name).hasMatch());
            const QFileInfo report(pathOf(*m, name, u"report.json"_s));
            QCOMPARE(report.permissions() & ~(QFile::ReadUser | QFile::WriteUser),
                     QFile::ReadOwner | QFile::WriteOwner);
            QCOMPARE(ContentOf(pathOf(*m, name, u"Карты-1.5.ipa"_s)), ContentOf(m->mapsIPA));
            QCOMPARE(ContentOf(pathOf(*m, name, u"заметки-2.1.ipa"_s)), ContentOf(m->notesIPA));
        }
        QVERIFY(folders.contains(QFileInfo(m->transfer()).fileName()));
        QCOMPARE(m->text("ipaLabel"),
                 u"IPA не выбран"_s); // what a single download saves is offered; not this
        const QByteArray expected = R"([
{"name": "Tom & <b>Jerry</b>", "bundleID": "com.example.pair", "installedVersion": "1", "status": "failed",
 "reason": "Получен IPA другого приложения. Файл не принят."},
{"name": "заметки", "bundleID": "com.example.notes", "installedVersion": "2.0", "status": "downloaded",
 "file": "заметки-2.1.ipa"},
{"name": "Карты", "bundleID": "com.example.maps", "installedVersion": "1.5", "status": "downloaded",
 "file": "Карты-1.5.ipa"}])";
        QCOMPARE(QJsonDocument::fromJson(ContentOf(folder() + u"/report.json"_s)),
                 QJsonDocument::fromJson(expected));

        QStringList asked; // of the second batch
        const QList<QStringList> calls = m->storeCalls();
        for (const QStringList &call : calls.last(6))
            asked << (call.contains(u"download"_s) ? call.sliced(8).join(u' ') : call.value(3));
        QCOMPARE(asked,
                 (QStringList{u"auth"_s, u"list-purchases"_s, u"--bundle-identifier com.example.pair"_s,
                              u"list-purchases"_s, u"--bundle-identifier com.example.notes"_s,
                              u"--app-id 123 --external-version-id 456"_s}));
    }

    void reportsEveryAppAtOnce()
    {
        QVERIFY(m->startWithApps());
        holdBack();
        m->find("exactVersion")->setChecked(false);
        QVERIFY(m->downloadAll());
        EVENTUALLY_EQUAL(reportIn(folder()), (QStringList{kPairRefused, kNotesNotYet, kMapsNotYet}));
        m->go();
        EVENTUALLY(!m->isBusy());
        QCOMPARE(reportIn(folder()).size(), 3);
        QVERIFY(!m->storeCalls().last().contains(u"--external-version-id"_s));
    }

    void stopsEarly_data()
    {
        // The word of the call that decides, what the tool says to it (nothing: it is cancelled); the status
        // and how the entry after which it stopped begins, if it came to one.
        const Rows<QString, QString, QString, QString> row;
        const QString notes = u"com.example.notes"_s;
        row("a new sign-in is needed: no alert, the rest is not attempted", notes,
            uR"({"error":"keychain is empty"})"_s, u"Сохранено: 0, ошибок: 2. Отчёт — report.json."_s,
            u"com.example.notes failed Нужен вход"_s);
        row("cancelled during a download: that one is cancelled, the rest is not attempted", notes, {},
            kCancelled, u"com.example.notes cancelled Операция отменена"_s);
        row("cancelled during the check of the account: no folder", u"info"_s, {}, kCancelled, {});
    }

    void stopsEarly()
    {
        const auto &[word, said, status, last] = Row<QString, QString, QString, QString>();
        QVERIFY(m->startWithApps());
        const QString &decisive = word;
        const QString &answer = said;
        m->playStore([&](Scenario &tool) {
            tool.when({decisive}).prints(answer);
            answer.isEmpty() ? tool.sleeps(kLong) : tool.exits(1);
        });
        const qsizetype known = m->storeCalls().size();
        const qsizetype expected = last.isEmpty() ? 1 : 5; // the last one is that which decides
        QVERIFY(m->downloadAll());
        EVENTUALLY_EQUAL(m->storeCalls().size() - known, expected);
        QVERIFY(!said.isEmpty() || m->cancels(u"ipatool"_s));
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), status);
        QVERIFY(!m->alert());
        QCOMPARE(m->storeCalls().size() - known, expected);
        if (last.isEmpty()) {
            QCOMPARE(m->saved(), QStringList());
            return;
        }
        QCOMPARE(m->transfer(), folder());
        QStringList report = reportIn(folder());
        QCOMPARE(report.size(), 3);
        QCOMPARE(report.takeAt(1).left(last.size()), last);
        QCOMPARE(report, (QStringList{kPairRefused, kMapsNotYet}));
    }

    void failsAsAWhole_data()
    {
        // What the account's check says, what happens after the choice and during the second app.
        const Rows<QString, Preparation, Preparation, QString> row; // how the explanation starts
        const QString confirmed = uR"({"email":"owner@example.com","success":true})"_s;
        row("the account is not confirmed: no folder", u"{}"_s, {}, {},
            u"Вход не подтверждён. Выполните вход в Apple Account."_s);
        const Preparation removes = [](Program &program) { QVERIFY(program.destination.remove()); };
        row("the chosen folder is gone", confirmed, removes, {}, u"Не удалось создать папку «"_s);
        const Preparation moves = [](Program &program) {
            const QString folder = program.destination.filePath(program.saved().value(0));
            QVERIFY(QFile::rename(folder, program.destination.filePath(u"away"_s)));
        };
        row("no place for the report: the former one stays", confirmed, {}, moves,
            u"Не удалось создать рабочую папку в «"_s);
        const Preparation blocks = [](Program &program) {
            const QString report = pathOf(program, program.saved().value(0), u"report.json"_s);
            QVERIFY(QFile::rename(report, report + u".away"_s) && QDir().mkpath(report));
        };
        row("the report cannot be replaced", confirmed, {}, blocks,
            u"Не удалось записать отчёт «report.json»: Это каталог"_s);
    }

    void failsAsAWhole()
    {
        const auto &[said, afterChoosing, during, sentence] =
            Row<QString, Preparation, Preparation, QString>();
        QVERIFY(m->startWithApps());
        m->storeSays({u"auth", u"info"}, said);
        if (during)
            holdBack();
        const Preparation then = afterChoosing ? afterChoosing : [](Program &) {};
        QVERIFY(m->downloadAll({}, [&] { then(*m); }));
        if (during) {
            EVENTUALLY_EQUAL(reportIn(folder()).size(), 3);
            QVERIFY(m->tools.waitForCalls(u"ipatool"_s, 6));
            during(*m);
            m->go();
        }
        EVENTUALLY(m->alert());
        QVERIFY2(m->status().startsWith(sentence), qPrintable(m->status()));
        QCOMPARE(m->transfer(), QString());
        QCOMPARE(m->storeCalls().size(), during ? 6 : 2); // nothing more was asked
        QCOMPARE(m->saved().size(), during ? 1 : 0);
        const QString away = m->destination.filePath(u"away"_s);
        if (QFileInfo::exists(away))
            QCOMPARE(reportIn(away), (QStringList{kPairRefused, kNotesNotYet, kMapsNotYet}));
        QDir(away).removeRecursively(); // with the working folder that was moved away from its owner
    }

    void doesNothingWithoutFolderOrApps()
    {
        QVERIFY(m->startWithApps());
        const QString before = m->status();
        QVERIFY(m->downloadAll([](QFileDialog &chooser) { chooser.reject(); }));
        QVERIFY(!m->isBusy());
        QCOMPARE(m->status(), before);
        m->deviceSays({u"apps"}, u"{}");
        QVERIFY(m->perform("reloadApps"));
        m->ask("allButton"); // a chooser would hold this up for ever
        QVERIFY(!m->isBusy());
    }
};

QTEST_MAIN(WindowBatchTest)
#include "tst_window_batch.moc"
