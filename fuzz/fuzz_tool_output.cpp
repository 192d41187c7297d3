// What the store tool prints: from bytes to JSON objects, and from these to what the program does about them.
#include "core/tool_output.h"
#include "fuzzing.h"
#include "signin/sign_in_dialogue.h"
#include "store/account_check.h"
#include "store/purchase_lookup.h"
#include "store/store_failure_messages.h"
#include "store/store_tool_client.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestText = 4096;        // of a record's member
constexpr qsizetype kLongestExplanation = 2000; // of an advice with a diagnostic of 1400
const QString kBundleID = u"ru.primer.karta"_s;
constexpr int kPage = 2;

bool breaksLines(QChar c)
{
    return c == u'\u0085' || c == QChar::LineSeparator || c == QChar::ParagraphSeparator;
}

void checkDecoding(QByteArrayView bytes, const QString &text)
{
    if (bytes.toByteArray().isValidUtf8())
        Require(text.toUtf8() == bytes, "UTF-8 becomes the same text, its byte order mark included");
    else
        Require(text.isEmpty(), "what is not UTF-8 becomes the empty text");
}

void checkObjects(const QString &text, const QList<QJsonObject> &objects)
{
    QList<QJsonObject> visited;
    VisitJSON(text, [&](const QJsonObject &object) {
        visited.append(object);
        return 2 * visited.size() < objects.size();
    });
    const qsizetype half = std::min(objects.size(), std::max(qsizetype{1}, (objects.size() + 1) / 2));
    Require(visited == objects.first(half), "a visit shows the same objects and ends when it is told to");

    QString printed;
    for (const QJsonObject &object : objects)
        printed +=
            u"prefix "_s + QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + u'\n';
    // JSON has these within texts, where they are line ends all the same.
    if (std::none_of(printed.begin(), printed.end(), breaksLines))
        Require(ZarvoJSON(printed) == objects, "objects in lines of their own are found as they are");
}

void checkValue(const QJsonValue &value)
{
    const QString text = JSONText(value);
    Require(text.size() <= kLongestText, "a member's text is bounded");
    if (value.isDouble())
        Require(text.toDouble() == value.toDouble(), "a number's text is that number");
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        std::for_each(array.begin(), array.end(), checkValue);
    }
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        std::for_each(object.begin(), object.end(), checkValue);
    }
}

void checkNumber(QByteArrayView line)
{
    const QByteArray text = line.toByteArray();
    const auto isPlain = [](char c) { return c > '\0' && c < '\x7f'; };
    if (std::all_of(text.begin(), text.end(), isPlain))
        Require(IntegerValue(QString::fromLatin1(text)) == std::strtoll(text.constData(), nullptr, 10),
                "a text's number is the one that the C library reads");
}

bool isMatch(const QJsonValue &purchase)
{
    return JSONText(purchase.toObject()["bundleID"_L1]) == kBundleID;
}

bool holdsMatch(const QJsonObject &object)
{
    const QJsonArray apps = object["apps"_L1].toArray();
    return std::any_of(apps.begin(), apps.end(), isMatch);
}

/// Whether an object says that there are no more purchases than the pages up to this one have shown.
bool endsList(const QJsonObject &object)
{
    const QJsonValue total = object["totalCount"_L1];
    return object.contains("apps"_L1) &&
           (object["apps"_L1].toArray().isEmpty() ||
            (!total.isUndefined() && IntegerValue(JSONText(total)) <= qint64{kPage} * kPurchasesPerPage));
}

void checkPurchases(const StoreReply &reply, const QList<QJsonObject> &objects)
{
    using Verdict = PurchaseSearch::Verdict;
    const PurchaseSearch search = SearchPurchases(reply, kBundleID, kPage);
    const bool isThere = std::any_of(objects.begin(), objects.end(), holdsMatch);
    Require(search.verdict != Verdict::Found || isThere, "an app that is found is among the purchases");
    Require(search.verdict != Verdict::GoOn || !isThere,
            "an app that is among the purchases ends the search");
    Require(search.verdict != Verdict::Ended || std::any_of(objects.begin(), objects.end(), endsList),
            "the search ends with the list");
    Require(search.verdict == Verdict::Found || search.id.isEmpty(), "only what is found has an identifier");
    Require(search.id.size() <= kLongestText, "an identifier is bounded");
}

void checkRun(const ToolResult &run)
{
    const QString output = run.out + u'\n' + run.err;
    const QList<QJsonObject> objects = ZarvoJSON(output);
    const auto succeeds = [](const QJsonObject &object) { return JSONTruth(object["success"_L1]); };
    const bool confirmed = std::any_of(objects.begin(), objects.end(), succeeds);

    const StoreReply reply = ParseStoreReply(run);
    Require(!StoreRunSucceeded({.code = 1}, reply), "a run with another exit status than 0 has failed");
    Require(ParseStoreReply({.out = output, .err = u"{\"error\":\"\"}"_s}).failed,
            "one error outweighs everything");
    Require(reply.account.has_value() == confirmed, "an account is confirmed by a success alone");
    Require(IsSignedIn(output, 0) == confirmed && !IsSignedIn(output, 1),
            "signed in is who has a success and a good end");
    checkPurchases(reply, objects);

    const QString shown = ZarvoStoreFailure(run);
    Require(!shown.isEmpty() && shown.size() <= kLongestExplanation,
            "a failure has a sentence that can be shown");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes = BytesOf(data, size);
    const QString text = ZarvoText(bytes);
    checkDecoding(bytes, text);
    const QList<QJsonObject> objects = ZarvoJSON(text);
    checkObjects(text, objects);
    for (const QJsonObject &object : objects)
        checkValue(object);
    checkNumber(bytes);
    const QList<QByteArrayView> outputs = PartsOf(bytes, 2);
    checkRun({1, ZarvoText(outputs[0]), ZarvoText(outputs[1]), outputs[0].toByteArray()});
    return 0;
}
