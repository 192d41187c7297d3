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

#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Verdict = PurchaseSearch::Verdict;
Q_DECLARE_METATYPE(PurchaseSearch::Verdict)

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
    void judgesRuns_data();
    void judgesRuns();
    void searchesBothOutputs();
    void findsTheAccount_data();
    void findsTheAccount();
    void searchesPurchases_data();
    void searchesPurchases();
    void makesDownloadArguments_data();
    void makesDownloadArguments();
    void decidesOnTheVersion_data();
    void decidesOnTheVersion();
    void readsTheTypedIdentifier_data();
    void readsTheTypedIdentifier();
    void measuresFolders();
    void describesProgress_data();
    void describesProgress();
    void bearsAFloodOfObjects_data();
    void bearsAFloodOfObjects();
};

void StoreRulesTest::judgesRuns_data()
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
    row("neither key, 0: succeeded", 0, uR"({"count":1})"_s, true);
    row("success as a number, 0: succeeded", 0, uR"({"success":1})"_s, true);
    row("success, 1: failed", 1, uR"({"success":true})"_s, false);
    row("ended by a signal: failed", 9, {}, false);
    row("no success, 0: failed", 0, uR"({"success":false})"_s, false);
    row("success is null, 0: failed", 0, uR"({"success":null})"_s, false);
    row("empty error, 0: failed", 0, uR"({"error":""})"_s, false);
    row("error beside success, 0: failed", 0, uR"({"success":true,"error":null})"_s, false);
    row("failure before success: failed", 0, u"{\"success\":false}\n{\"success\":true}"_s, false);
    row("failure after success and noise: failed", 0, u"{\"success\":true}\nnoise\nx {\"error\":1}"_s, false);
}

void StoreRulesTest::judgesRuns()
{
    QFETCH(const int, code);
    QFETCH(const QString, output);
    QTEST(StoreRunSucceeded(code, output), "succeeded");
}

void StoreRulesTest::searchesBothOutputs()
{
    // What stands last in one output and first in the other must not become one line.
    const ToolResult result{0, u"half"_s, uR"({"success":false})"_s, {}};
    QCOMPARE(CombinedOutput(result), u"half\n{\"success\":false}"_s);
}

void StoreRulesTest::findsTheAccount_data()
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
    row("refusals are skipped", u"{\"success\":false,\"email\":\"x\"}\n{\"success\":true,\"email\":\"y\"}"_s,
        u"y"_s);
    row("an e-mail alone confirms nothing", uR"({"email":"a@b.c"})"_s, std::nullopt);
    row("a text is no confirmation", uR"({"email":"a@b.c","success":"true"})"_s, std::nullopt);
    row("no JSON", u"ok"_s, std::nullopt);
}

void StoreRulesTest::findsTheAccount()
{
    QFETCH(const QString, output);
    QTEST(ConfirmedAccount(output), "email");
}

void StoreRulesTest::searchesPurchases_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("page");
    QTest::addColumn<Verdict>("verdict");
    QTest::addColumn<QString>("id");
    const auto row = [](const char *name, const QString &output, int page, Verdict verdict,
                        const QString &id = {}) { QTest::newRow(name) << output << page << verdict << id; };
    const QString other = uR"({"apps":[{"bundleID":"a.other","id":1}]%1})"_s;
    row("number", uR"({"apps":[{"bundleID":"x","id":1},{"bundleID":"a.b","id":284882215}]})"_s, 1,
        Verdict::Found, u"284882215"_s);
    row("number beyond what a double holds", uR"({"apps":[{"bundleID":"a.b","id":9007199254740993}]})"_s, 1,
        Verdict::Found, u"9007199254740993"_s);
    row("text", uR"({"apps":[{"bundleID":"a.b","id":"77"}]})"_s, 1, Verdict::Found, u"77"_s);
    row("found without identifier", uR"({"apps":[{"bundleID":"a.b"}]})"_s, 1, Verdict::Found);
    row("found on the last page", uR"({"apps":[{"bundleID":"a.b","id":5}],"totalCount":1})"_s, 1,
        Verdict::Found, u"5"_s);
    row("case differs: go on", uR"({"apps":[{"bundleID":"A.b","id":5}]})"_s, 1, Verdict::GoOn);
    row("empty list: ended", uR"({"apps":[],"totalCount":900})"_s, 1, Verdict::Ended);
    row("total not reached", other.arg(uR"(,"totalCount":250)"), 2, Verdict::GoOn);
    row("total reached", other.arg(uR"(,"totalCount":250)"), 3, Verdict::Ended);
    row("total reached exactly", other.arg(uR"(,"totalCount":200)"), 2, Verdict::Ended);
    row("no total: go on", other.arg(QString()), 99, Verdict::GoOn);
    row("no list: go on", uR"({"success":true,"totalCount":0})"_s, 1, Verdict::GoOn);
    row("nothing: go on", {}, 1, Verdict::GoOn);
    row("objects without a list are passed over",
        u"{\"level\":\"info\"}\n{\"apps\":[{\"bundleID\":\"a.b\",\"id\":6}]}"_s, 1, Verdict::Found, u"6"_s);
    row("the first decision wins", u"{\"apps\":[]}\n{\"apps\":[{\"bundleID\":\"a.b\",\"id\":6}]}"_s, 1,
        Verdict::Ended);
}

void StoreRulesTest::searchesPurchases()
{
    QFETCH(const QString, output);
    QFETCH(const int, page);
    const PurchaseSearch found = SearchPurchases(output, u"a.b"_s, page);
    QTEST(found.verdict, "verdict");
    QTEST(found.id, "id");
}

void StoreRulesTest::makesDownloadArguments_data()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("versionID");
    QTest::addColumn<bool>("exact");
    QTest::addColumn<QStringList>("end");
    const QStringList byBundle{u"--bundle-identifier"_s, u"a.b"_s};
    const QStringList byID{u"--app-id"_s, u"42"_s};
    const QStringList version{u"--external-version-id"_s, u"7"_s};
    const auto row = [](const char *name, const QString &identifier, const QString &versionID, bool exact,
                        const QStringList &end) {
        QTest::newRow(name) << identifier << versionID << exact << end;
    };
    row("number", u"42"_s, {}, false, byID);
    row("none", {}, {}, false, byBundle);
    row("zero", u"0"_s, {}, false, byBundle);
    row("negative", u"-5"_s, {}, false, byBundle);
    row("no number", u"a42"_s, {}, false, byBundle);
    row("exact", u"42"_s, u"7"_s, true, byID + version);
    row("exact by bundle", {}, u"7"_s, true, byBundle + version);
    row("version known, not asked for", u"42"_s, u"7"_s, false, byID);
    row("exact, version not known", u"42"_s, {}, true, byID);
    row("exact, version zero", u"42"_s, u"0"_s, true, byID);
}

void StoreRulesTest::makesDownloadArguments()
{
    QFETCH(const QString, identifier);
    QFETCH(const QString, versionID);
    QFETCH(const bool, exact);
    QFETCH(const QStringList, end);
    const AppRow app{u"a.b"_s, u"App"_s, u"1"_s, u"999"_s, versionID, {}};
    const QStringList start{u"download"_s, u"--output"_s, u"/d/x y.ipa"_s, u"--platform"_s, u"iphone"_s};
    QCOMPARE(DownloadArguments(app, identifier, u"/d/x y.ipa"_s, exact), start + end);
}

void StoreRulesTest::decidesOnTheVersion_data()
{
    QTest::addColumn<QString>("versionID");
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("exact");
    QTest::addColumn<bool>("wanted");
    QTest::newRow("the installed one: wanted") << u"7"_s << u"1.10"_s << true << true;
    QTest::newRow("equal in value only: refused") << u"7"_s << u"1.10.0"_s << true << false;
    QTest::newRow("identifier known, of no use: refused") << u"0"_s << u"2"_s << true << false;
    QTest::newRow("identifier not known: wanted") << QString() << u"2"_s << true << true;
    QTest::newRow("any version will do: wanted") << u"7"_s << u"2"_s << false << true;
}

void StoreRulesTest::decidesOnTheVersion()
{
    QFETCH(const QString, versionID);
    QFETCH(const QString, version);
    QFETCH(const bool, exact);
    QTEST(IsWantedVersion({u"a.b"_s, u"App"_s, u"1.10"_s, {}, versionID, {}}, version, exact), "wanted");
}

void StoreRulesTest::readsTheTypedIdentifier_data()
{
    QTest::addColumn<std::optional<QString>>("typed");
    const auto row = [](const QString &text, const std::optional<QString> &typed) {
        QTest::newRow(qUtf8Printable(u"'%1'"_s.arg(text))) << typed;
    };
    for (const QString &text : {u""_s, u" \t "_s})
        row(text, QString());
    row(u"1"_s, u"1"_s);
    row(u" 284882215\n"_s, u"284882215"_s);
    row(u"007"_s, u"007"_s);
    row(u"99999999999999999999"_s, u"99999999999999999999"_s);
    for (const QString &text :
         {u"0"_s, u"000"_s, u"-5"_s, u"+5"_s, u"12a"_s, u"1 2"_s, u"1.5"_s, u"٣"_s, u"１２"_s})
        row(text, std::nullopt);
}

void StoreRulesTest::readsTheTypedIdentifier()
{
    QString text = QString::fromUtf8(QTest::currentDataTag());
    text = text.sliced(1, text.size() - 2);
    QTEST(TypedStoreID(text), "typed");
}

void StoreRulesTest::measuresFolders()
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

void StoreRulesTest::describesProgress_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing yet") << qint64{0} << u"Получено 0 Б • 65 с"_s;
    QTest::newRow("decimal units") << qint64{2'500'000} << u"Получено 2,5 МБ • 65 с"_s;
    QTest::newRow("beyond 32 bits") << qint64{4'200'000'000} << u"Получено 4,2 ГБ • 65 с"_s;
}

void StoreRulesTest::describesProgress()
{
    QFETCH(const qint64, bytes);
    QString text = ProgressText(bytes, 65s);
    text.replace(QChar::Nbsp, u' ');
    QTEST(text, "text");
}

void StoreRulesTest::bearsAFloodOfObjects_data()
{
    using Judge = std::function<bool(const ToolResult &)>; // true when nothing special was found
    QTest::addColumn<Judge>("judge");
    QTest::newRow("success") << Judge([](const ToolResult &run) { return StoreRunSucceeded(0, run.out); });
    QTest::newRow("account") << Judge([](const ToolResult &run) { return !ConfirmedAccount(run.out); });
    QTest::newRow("purchases") << Judge(
        [](const ToolResult &run) { return SearchPurchases(run.out, u"a.b"_s, 1).verdict == Verdict::GoOn; });
    QTest::newRow("reason") << Judge(
        [](const ToolResult &run) { return ZarvoSafeStoreDiagnostic(run).isEmpty(); });
    QTest::newRow("device") << Judge([](const ToolResult &run) { return LastDeviceReply(run).has_value(); });
}

// The runner keeps 32 MB of output: ten million objects, which kept together need more than a gigabyte.
void StoreRulesTest::bearsAFloodOfObjects()
{
    QFETCH(const std::function<bool(const ToolResult &)>, judge);
    constexpr qint64 kBearable = qint64{600} << 20; // with what a sanitizer adds
    const ToolResult run{0, u"{}\n"_s.repeated((32 << 20) / 3), {}, {}};
    takePeakMemory();
    const qint64 before = takePeakMemory();
    QVERIFY(judge(run));
    const qint64 grown = takePeakMemory() - before;
    QVERIFY(before > 0);
    QVERIFY2(grown < kBearable, qPrintable(QString::number(grown >> 20)));
}

QTEST_GUILESS_MAIN(StoreRulesTest)
#include "tst_store_rules.moc"
