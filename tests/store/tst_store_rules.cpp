#include "device/device_tool_client.h"
#include "store/account_check.h"
#include "store/app_download.h"
#include "store/diagnostic_redaction.h"
#include "store/purchase_lookup.h"
#include "store/store_failure_messages.h"
#include "store/store_tool_client.h"
#include "support/rows.h"

#include <QFile>

using namespace Qt::StringLiterals;

using Verdict = PurchaseSearch::Verdict;

namespace {

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
        const Rows<int, QString, bool> row; // exit code and output; whether it succeeded
        row("no JSON, 0", 0, u"done"_s, true);
        row("success as a number, 0", 0, uR"({"success":1})"_s, true);
        row("ended by a signal", 9, {}, false);
        row("success is null, 0", 0, uR"({"success":null})"_s, false);
        row("empty error, 0", 0, uR"({"error":""})"_s, false);
        row("error beside success, 0", 0, uR"({"success":true,"error":null})"_s, false);
        row("failure before success", 0, u"{\"success\":false}\n{\"success\":true}"_s, false);
        row("failure after success and noise", 0, u"{\"success\":true}\nnoise\nx {\"error\":1}"_s, false);
    }

    void judgesRuns()
    {
        const auto &[code, output, succeeded] = Row<int, QString, bool>();
        // What stands last in one output and first in the other must not become one line.
        for (const ToolResult &run :
             {ToolResult{code, output, {}, {}}, ToolResult{code, u"half"_s, output, {}}})
            QCOMPARE(StoreRunSucceeded(run, ParseStoreReply(run)), succeeded);
    }

    void findsTheAccount_data()
    {
        const Rows<QString, std::optional<QString>> row;
        row("confirmed", uR"({"email":"a@b.c","success":true})"_s, u"a@b.c"_s);
        row("the first confirmation decides, also without e-mail",
            u"{\"success\":true}\n{\"success\":true,\"email\":\"a@b.c\"}"_s, QString());
        row("refusals are skipped",
            u"{\"success\":false,\"email\":\"x\"}\n{\"success\":true,\"email\":\"y\"}"_s, u"y"_s);
        row("an e-mail alone confirms nothing", uR"({"email":"a@b.c"})"_s, {});
    }

    void findsTheAccount()
    {
        const auto &[output, email] = Row<QString, std::optional<QString>>();
        QCOMPARE(ParseStoreReply({.out = output}).account, email);
    }

    void searchesPurchases_data()
    {
        const Rows<QString, int, Verdict, QString>
            row; // page of purchases and its number; the app's identifier
        const QString app = uR"({"apps":[{"bundleID":"x","id":1},{"bundleID":"a.b"%1}],"totalCount":1})"_s;
        const QString other = uR"({"apps":[{"bundleID":"a.other","id":1}]%1})"_s;
        const QString noise = u"{\"level\":\"info\"}\n"_s;
        row("number beyond what a double holds, on the last page",
            noise + app.arg(uR"(,"id":9007199254740993)"), 1, Verdict::Found, u"9007199254740993"_s);
        row("found without identifier", app.arg(QString()), 1, Verdict::Found, {});
        row("case differs: go on", uR"({"apps":[{"bundleID":"A.b","id":5}]})"_s, 1, Verdict::GoOn, {});
        row("total not reached", other.arg(uR"(,"totalCount":250)"), 2, Verdict::GoOn, {});
        row("total reached exactly", other.arg(uR"(,"totalCount":200)"), 2, Verdict::Ended, {});
        row("no total: go on", other.arg(QString()), 99, Verdict::GoOn, {});
        row("no list: go on", uR"({"success":true,"totalCount":0})"_s, 1, Verdict::GoOn, {});
        row("the first decision wins", u"{\"apps\":[]}\n"_s + app.arg(QString()), 1, Verdict::Ended, {});
    }

    void searchesPurchases()
    {
        const auto &[output, page, verdict, id] = Row<QString, int, Verdict, QString>();
        const PurchaseSearch found = SearchPurchases(ParseStoreReply({.out = output}), u"a.b"_s, page);
        QCOMPARE(found.verdict, verdict);
        QCOMPARE(found.id, id);
    }

    // What is redacted cannot match.
    void theReasonChoosesTheAdvice_data()
    {
        const Rows<QString, QString> row; // the reason, how the advice begins
        const QString other = u"Загрузку выполнить не удалось."_s;
        row("licence, in any case", u"License IS Required"_s, u"Apple требует лицензию"_s);
        row("missing app before the time limit", u"app not found: timed out"_s,
            u"Apple не предоставила приложение."_s);
        row("crash", u"panic: runtime error"_s, u"Модуль загрузки аварийно"_s);
        row("locked storage", u"open: Operation not permitted"_s, u"Локальное хранилище"_s);
        row("sign-in", u"failed to get account: item missing in keychain"_s, u"Нужен вход в Apple Account"_s);
        row("time limit before the certificate", u"timed out, certificate expired"_s,
            u"Не удалось дождаться ответа"_s);
        row("certificate", u"x509: unknown authority"_s, u"Не удалось установить защищённое"_s);
        row("too many requests, also within a number", u"size 14290"_s, u"Сервис ограничил"_s);
        row("anything else", u"panic without its colon"_s, other);
        row("what is redacted", u"GET https://example.org/timeout/429"_s, other);
    }

    void theReasonChoosesTheAdvice()
    {
        const auto &[reason, advice] = Row<QString, QString>();
        const QString message = ZarvoStoreFailure({.code = 1, .out = {}, .err = reason, .data = {}});
        QVERIFY2(message.startsWith(advice), qPrintable(message));
    }

    // An app that the phone gave no identifier must not be taken for a purchase without one.
    void findsNothingForAnAppWithoutIdentifier()
    {
        QVERIFY(SearchPurchases(ParseStoreReply({.out = uR"({"apps":[{"id":5}]})"_s}), {}, 1).verdict ==
                Verdict::GoOn);
    }

    void asksByIdentifiersThatAreNumbers()
    {
        const auto end = [](const QString &identifier, const QString &versionID) {
            const AppRow app{u"a.b"_s, u"App"_s, u"1"_s, u"999"_s, versionID, {}};
            return DownloadArguments(app, identifier, u"/d/x y.ipa"_s, true).sliced(5).join(u' ');
        };
        for (const QString &identifier : {u""_s, u"0"_s, u"-5"_s, u"a42"_s})
            QCOMPARE(end(identifier, u"7"_s), u"--bundle-identifier a.b --external-version-id 7"_s);
        for (const QString &text : {u"1"_s, u"007"_s, u"99999999999999999999"_s})
            QCOMPARE(TypedStoreID(u" %1\n"_s.arg(text)), text);
        for (const QString &text :
             {u"0"_s, u"000"_s, u"+5"_s, u"12a"_s, u"1 2"_s, u"1.5"_s, u"٣"_s, u"１２"_s})
            QVERIFY2(!TypedStoreID(text), qUtf8Printable(text));
    }

    // Seven million objects, which kept together need 600 MB, in less output than the runner accepts.
    void bearsAFloodOfObjects()
    {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
        constexpr qsizetype kPrinted = 2 << 20; // a minute otherwise; memory is judged without them
#else
        constexpr qsizetype kPrinted = 20 << 20;
#endif
        constexpr qint64 kBearable = qint64{500} << 20;
        const ToolResult run{0, u"{}\n"_s.repeated(kPrinted / 3), {}, {}};
        takePeakMemory();
        const qint64 before = takePeakMemory();
        QVERIFY(before > 0);
        const StoreReply reply = ParseStoreReply(run);
        QVERIFY(!reply.failed && !reply.account && reply.purchases.isEmpty());
        QVERIFY(ZarvoSafeStoreDiagnostic(run).isEmpty());
        QVERIFY(LastDeviceReply(run));
        const qint64 grown = takePeakMemory() - before;
        QVERIFY2(grown < kBearable, qPrintable(QString::number(grown >> 20)));
    }
};

QTEST_GUILESS_MAIN(StoreRulesTest)
#include "tst_store_rules.moc"
