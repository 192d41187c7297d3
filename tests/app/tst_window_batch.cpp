#include "app/window_fixture.h"
#include "support/rows.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <atomic>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

const QString kCancelled = u"Операция отменена."_s;
// Entries of a report, as reportIn() gives them.
const QString kPairRefused = u"com.example.pair failed Получен IPA другого приложения. Файл не принят."_s;
const QString kMapsNotYet = u"com.example.maps not_attempted "_s;
const QStringList kUntilNotes{kPairRefused, u"com.example.notes not_attempted "_s, kMapsNotYet};

std::atomic<bool> foldersFail = false;

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

// In place of the system's.
extern "C" int fsync(int file)
{
    const bool fails = foldersFail && QFileInfo(u"/proc/self/fd/%1"_s.arg(file)).isDir();
    errno = EIO;
    return fails ? -1 : 0;
}

class WindowBatchTest : public ProgramTest
{
    Q_OBJECT

private:
    QString folder() const { return m->destination.filePath(m->saved().value(0)); }

private Q_SLOTS:
    void goesOnAfterAFailure()
    {
        QVERIFY(m->startWithApps());
        m->type("search", u"КАР"_s); // the batch is about all apps, not about those shown
        for (const int batch : {1, 2}) {
            m->find("exactVersion")->setChecked(batch == 1);
            foldersFail = batch == 2; // at the very last step, with all in its place
            QVERIFY(m->downloadAll([&](QFileDialog &chooser) {
                QCOMPARE(chooser.directory() == QDir(m->destination.path()), batch == 2); // as typed before
                QCOMPARE(chooser.findChild<QLineEdit *>(u"fileNameEdit"_s)->text(), QString());
                QCOMPARE(chooser.windowTitle(), u"Будет обработан весь список: 3 приложений. Недоступные "
                                                "приложения будут отмечены в отчёте."_s);
            }));
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

        QStringList asked;
        const QList<QStringList> calls = m->storeCalls();
        for (const QStringList &call : calls.sliced(1))
            asked << (call.contains(u"download"_s) ? call.sliced(8).join(u' ') : call.value(3));
        const QString each = u"auth|list-purchases|--bundle-identifier com.example.pair|list-purchases|"
                             "--bundle-identifier com.example.notes|--app-id 123%1"_s;
        QCOMPARE(asked.join(u'|'), each.arg(u" --external-version-id 456|"_s) + each.arg(QString()));
    }

    void tellsInTheReportWhatAilsTheTool()
    {
        m->storeSays({u"com.example.notes"}, u"unknown flag: --app-id", 1);
        QVERIFY(m->startWithApps() && m->downloadAll());
        EVENTUALLY(!m->isBusy());
        QVERIFY(!m->alert());
        const QString ill = reportIn(folder()).value(1);
        QVERIFY2(ill.contains(u"flag: --app-id\n\nЭта версия ipatool не подходит"_s), qPrintable(ill));
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
        m->playStore([&, decisive = word, answer = said](Scenario &tool) {
            tool.when({decisive}).prints(answer);
            answer.isEmpty() ? tool.sleeps(kLong) : tool.exits(1);
        });
        const qsizetype expected =
            m->storeCalls().size() + (last.isEmpty() ? 1 : 5); // with that which decides
        QVERIFY(m->downloadAll());
        EVENTUALLY_EQUAL(m->storeCalls().size(), expected);
        QVERIFY(!said.isEmpty() || m->cancels(u"ipatool"_s));
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), status);
        QVERIFY(!m->alert());
        QCOMPARE(m->storeCalls().size(), expected);
        QCOMPARE(m->saved().isEmpty(), last.isEmpty());
        const QStringList report = reportIn(folder());
        QCOMPARE(report.size(), last.isEmpty() ? 0 : 3);
        QVERIFY2(report.value(1).startsWith(last), qPrintable(report.value(1)));
        QVERIFY(report.isEmpty() || (report[0] == kPairRefused && report[2] == kMapsNotYet));
    }

    void failsWithoutAFolder()
    {
        QVERIFY(m->startWithApps());
        QVERIFY(m->downloadAll({}, [&] { QVERIFY(m->destination.remove()); }));
        EVENTUALLY(m->alert());
        QVERIFY2(m->status().startsWith(u"Не удалось создать папку «"_s), qPrintable(m->status()));
        QCOMPARE(m->storeCalls().size(), 2); // nothing more was asked
    }

    // While the second app comes, something gets into the report's place that cannot be replaced.
    void failsWithoutItsReport()
    {
        QVERIFY(m->startWithApps());
        m->playStore([&](Scenario &tool) {
            tool.when({u"download", u"com.example.notes"}).awaits(m->goFile());
            tool.copies(m->notesIPA).prints(u"{\"success\":true}");
        });
        QVERIFY(m->downloadAll());
        EVENTUALLY_EQUAL(reportIn(folder()), kUntilNotes); // every app from the beginning
        QVERIFY(m->tools.waitForCalls(u"ipatool"_s, 6));
        const QString report = folder() + u"/report.json"_s;
        QVERIFY(QFile::remove(report) && QDir().mkpath(report));
        m->go();
        EVENTUALLY(m->alert());
        QCOMPARE(m->status(), u"Не удалось записать «report.json»: Это каталог."_s);
        QCOMPARE(m->transfer(), QString());
        QCOMPARE(m->storeCalls().size(), 6);
    }
};

QTEST_MAIN(WindowBatchTest)
#include "tst_window_batch.moc"
