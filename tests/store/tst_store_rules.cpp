#include "device/device_tool_client.h"
#include "store/account_check.h"
#include "store/app_download.h"
#include "store/diagnostic_redaction.h"
#include "store/purchase_lookup.h"
#include "store/store_tool_client.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Verdict = PurchaseSearch::Verdict;

namespace {

bool writeFile(const QString &path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray(size, 'x')) == size;
}

// What this process needed at most since the call before: its "VmHWM" is set back. Linux.
qint64 takePeakMemory()
{
    qint64 kilobytes = 0;
    QFile status(u"/proc/self/status"_s);
    if (status.open(QIODevice::ReadOnly)) {
        const QByteArray text = status.readAll();
        const QByteArray rest = text.mid(text.indexOf("VmHWM:") + 6);
        kilobytes = rest.left(rest.indexOf('k')).trimmed().toLongLong();
    }
    QFile reset(u"/proc/self/clear_refs"_s);
    return reset.open(QIODevice::WriteOnly) && reset.write("5") == 1 ? kilobytes * 1024 : 0;
}

} // namespace

class StoreRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judgesRuns_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("output");
        QTest::addColumn<bool>("succeeded");
        const auto row = [](const char *name, int code, const QString &output, bool succeeded) {
            QTest::newRow(name) << code << output << succeeded;
        };
        row("no JSON, 0: succeeded", 0, u"done"_s, true);
        row("nothing, 0: succeeded", 0, {}, true);
        row("success, 0: succeeded", 0, uR"({"success":true})"_s, true);
        row("success as a number, 0: succeeded", 0, uR"({"success":1})"_s, true);
        row("success, 1: failed", 1, uR"({"success":true})"_s, false);
        row("ended by a signal: failed", 9, {}, false);
        row("no success, 0: failed", 0, uR"({"success":false})"_s, false);
        row("success is null, 0: failed", 0, uR"({"success":null})"_s, false);
        row("empty error, 0: failed", 0, uR"({"error":""})"_s, false);
        row("error beside success, 0: failed", 0, uR"({"success":true,"error":null})"_s, false);
        row("failure before success: failed", 0, u"{\"success\":false}\n{\"success\":true}"_s, false);
        row("failure after success and noise: failed", 0, u"{\"success\":true}\nnoise\nx {\"error\":1}"_s,
            false);
    }

    void judgesRuns()
    {
        QFETCH(const int, code);
        QFETCH(const QString, output);
        QTEST(StoreRunSucceeded(code, output), "succeeded");
        // What stands last in one output and first in the other must not become one line.
        QTEST(StoreRunSucceeded(code, CombinedOutput({code, u"half"_s, output, {}})), "succeeded");
    }

    void findsTheAccount_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<std::optional<QString>>("email");
        const auto row = [](const char *name, const QString &output, const std::optional<QString> &email) {
            QTest::newRow(name) << output << email;
        };
        row("confirmed", uR"({"email":"a@b.c","success":true})"_s, u"a@b.c"_s);
        row("confirmed without e-mail: empty", uR"({"success":true})"_s, QString());
        row("the first confirmation decides", u"{\"success\":true}\n{\"success\":true,\"email\":\"a@b.c\"}"_s,
            QString());
        row("refusals are skipped",
            u"{\"success\":false,\"email\":\"x\"}\n{\"success\":true,\"email\":\"y\"}"_s, u"y"_s);
        row("an e-mail alone confirms nothing", uR"({"email":"a@b.c"})"_s, std::nullopt);
        row("a text is no confirmation", uR"({"email":"a@b.c","success":"true"})"_s, std::nullopt);
    }

    void findsTheAccount()
    {
        QFETCH(const QString, output);
        QTEST(ConfirmedAccount(output), "email");
    }

    void searchesPurchases_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<int>("page");
        QTest::addColumn<Verdict>("verdict");
        QTest::addColumn<QString>("id");
        const auto row = [](const char *name, const QString &output, int page, Verdict verdict,
                            const QString &id = {}) {
            QTest::newRow(name) << output << page << verdict << id;
        };
        const QString other = uR"({"apps":[{"bundleID":"a.other","id":1}]%1})"_s;
        row("number", uR"({"apps":[{"bundleID":"x","id":1},{"bundleID":"a.b","id":284882215}]})"_s, 1,
            Verdict::Found, u"284882215"_s);
        row("number beyond what a double holds", uR"({"apps":[{"bundleID":"a.b","id":9007199254740993}]})"_s,
            1, Verdict::Found, u"9007199254740993"_s);
        row("found without identifier", uR"({"apps":[{"bundleID":"a.b"}]})"_s, 1, Verdict::Found);
        row("found on the last page", uR"({"apps":[{"bundleID":"a.b","id":5}],"totalCount":1})"_s, 1,
            Verdict::Found, u"5"_s);
        row("case differs: go on", uR"({"apps":[{"bundleID":"A.b","id":5}]})"_s, 1, Verdict::GoOn);
        row("empty list: ended", uR"({"apps":[],"totalCount":900})"_s, 1, Verdict::Ended);
        row("total not reached", other.arg(uR"(,"totalCount":250)"), 2, Verdict::GoOn);
        row("total reached exactly", other.arg(uR"(,"totalCount":200)"), 2, Verdict::Ended);
        row("no total: go on", other.arg(QString()), 99, Verdict::GoOn);
        row("no list: go on", uR"({"success":true,"totalCount":0})"_s, 1, Verdict::GoOn);
        row("objects without a list are passed over",
            u"{\"level\":\"info\"}\n{\"apps\":[{\"bundleID\":\"a.b\",\"id\":6}]}"_s, 1, Verdict::Found,
            u"6"_s);
        row("the first decision wins", u"{\"apps\":[]}\n{\"apps\":[{\"bundleID\":\"a.b\",\"id\":6}]}"_s, 1,
            Verdict::Ended);
    }

    void searchesPurchases()
    {
        QFETCH(const QString, output);
        QFETCH(const int, page);
        const PurchaseSearch found = SearchPurchases(output, u"a.b"_s, page);
        QTEST(found.verdict, "verdict");
        QTEST(found.id, "id");
    }

    // An app that the phone gave no identifier must not be taken for a purchase without one.
    void findsNothingForAnAppWithoutIdentifier()
    {
        QVERIFY(SearchPurchases(uR"({"apps":[{"id":5}]})"_s, {}, 1).verdict == Verdict::GoOn);
    }

    void makesDownloadArguments()
    {
        const QString output = u"/d/x y.ipa"_s;
        const auto end = [&](const QString &identifier, const QString &versionID, bool exact) {
            const AppRow app{u"a.b"_s, u"App"_s, u"1"_s, u"999"_s, versionID, {}};
            return DownloadArguments(app, identifier, output, exact).sliced(5).join(u' ');
        };
        QCOMPARE(DownloadArguments({}, {}, output, false).first(5),
                 (QStringList{u"download"_s, u"--output"_s, output, u"--platform"_s, u"iphone"_s}));
        for (const QString &identifier : {u""_s, u"0"_s, u"-5"_s, u"a42"_s})
            QCOMPARE(end(identifier, {}, false), u"--bundle-identifier a.b"_s);
        QCOMPARE(end({}, u"7"_s, true), u"--bundle-identifier a.b --external-version-id 7"_s);
        QCOMPARE(end(u"42"_s, u"7"_s, true), u"--app-id 42 --external-version-id 7"_s);
        QCOMPARE(end(u"42"_s, u"7"_s, false), u"--app-id 42"_s);
        for (const QString &unknown : {u""_s, u"0"_s})
            QCOMPARE(end(u"42"_s, unknown, true), u"--app-id 42"_s);
    }

    void decidesOnTheVersion()
    {
        const auto wanted = [](const QString &versionID, const QString &version, bool exact) {
            return IsWantedVersion({u"a.b"_s, u"App"_s, u"1.10"_s, {}, versionID, {}}, version, exact);
        };
        QVERIFY(wanted(u"7"_s, u"1.10"_s, true));
        QVERIFY(!wanted(u"7"_s, u"1.10.0"_s, true));
        QVERIFY(!wanted(u"0"_s, u"2"_s, true)); // known, though of no use for asking
        QVERIFY(wanted({}, u"2"_s, true));
        QVERIFY(wanted(u"7"_s, u"2"_s, false));
    }

    void readsTheTypedIdentifier()
    {
        for (const QString &text : {u""_s, u" \t "_s})
            QCOMPARE(TypedStoreID(text), QString());
        for (const QString &text : {u"1"_s, u"007"_s, u"99999999999999999999"_s})
            QCOMPARE(TypedStoreID(u" %1\n"_s.arg(text)), text);
        for (const QString &text :
             {u"0"_s, u"000"_s, u"-5"_s, u"+5"_s, u"12a"_s, u"1 2"_s, u"1.5"_s, u"٣"_s, u"１２"_s})
            QVERIFY2(!TypedStoreID(text), qUtf8Printable(text));
    }

    void measuresFolders()
    {
        const QTemporaryDir folder;
        QCOMPARE(FolderSize(folder.path()), 0);
        QVERIFY(QDir(folder.path()).mkpath(u"a/.b"_s));
        QVERIFY(writeFile(folder.filePath(u"Ю"_s), 10));
        QVERIFY(writeFile(folder.filePath(u"a/.b/c"_s), 5));
        // Neither counted twice nor followed out of the folder.
        QVERIFY(QFile::link(folder.filePath(u"Ю"_s), folder.filePath(u"link"_s)));
        QVERIFY(QFile::link(u"/usr"_s, folder.filePath(u"a/way out"_s)));
        QCOMPARE(FolderSize(folder.path()), 15);
        QCOMPARE(FolderSize(folder.filePath(u"missing"_s)), 0);
    }

    void describesProgress()
    {
        const auto text = [](qint64 bytes) { return ProgressText(bytes, 65s).replace(QChar::Nbsp, u' '); };
        QCOMPARE(text(0), u"Получено 0 Б • 65 с"_s);
        QCOMPARE(text(2'500'000), u"Получено 2,5 МБ • 65 с"_s);
        QCOMPARE(text(4'200'000'000), u"Получено 4,2 ГБ • 65 с"_s);
    }

    // Seven million objects, which kept together need 600 MB, in less output than the runner accepts.
    void bearsAFloodOfObjects()
    {
        constexpr qint64 kBearable = qint64{500} << 20; // with what a sanitizer adds
        const ToolResult run{0, u"{}\n"_s.repeated((20 << 20) / 3), {}, {}};
        takePeakMemory();
        const qint64 before = takePeakMemory();
        QVERIFY(before > 0);
        QVERIFY(StoreRunSucceeded(0, run.out));
        QVERIFY(!ConfirmedAccount(run.out));
        QCOMPARE(SearchPurchases(run.out, u"a.b"_s, 1).verdict, Verdict::GoOn);
        QVERIFY(ZarvoSafeStoreDiagnostic(run).isEmpty());
        QVERIFY(LastDeviceReply(run));
        const qint64 grown = takePeakMemory() - before;
        QVERIFY2(grown < kBearable, qPrintable(QString::number(grown >> 20)));
    }
};

QTEST_GUILESS_MAIN(StoreRulesTest)
#include "tst_store_rules.moc"
