#include "store/purchase_lookup.h"

#include "app/zarvo_app.h"
#include "core/tool_output.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kPageTimeout{180};
constexpr int kLastPage = 100;

PurchaseSearch searchObject(const QJsonObject &object, const QString &bundleID, int page)
{
    using Verdict = PurchaseSearch::Verdict;
    const auto list = object.constFind("apps"_L1);
    if (list == object.constEnd())
        return {};
    const QJsonArray purchases = list->toArray();
    for (const auto &purchase : purchases) {
        const QJsonObject entry = purchase.toObject();
        if (!bundleID.isEmpty() && JSONText(entry["bundleID"_L1]) == bundleID)
            return {Verdict::Found, JSONText(entry["id"_L1])};
    }
    if (purchases.isEmpty())
        return {Verdict::Ended, {}};
    const auto total = object.constFind("totalCount"_L1);
    const bool reached =
        total != object.constEnd() && qint64{page} * kPurchasesPerPage >= IntegerValue(JSONText(*total));
    return {reached ? Verdict::Ended : Verdict::GoOn, {}};
}

} // namespace

PurchaseSearch SearchPurchases(const QString &output, const QString &bundleID, int page)
{
    PurchaseSearch search;
    VisitJSON(output, [&](const QJsonObject &object) {
        search = searchObject(object, bundleID, page);
        return search.verdict == PurchaseSearch::Verdict::GoOn;
    });
    return search;
}

std::optional<QString> ZarvoApp::purchaseID(const AppRow &row, Error *error)
{
    if (!row.storeID.isEmpty())
        return row.storeID;
    for (int page = 1; page <= kLastPage; ++page) {
        setTransfer(u"Поиск в покупках, страница %1…"_s.arg(page));
        const auto output =
            store({u"list-purchases"_s, u"--page"_s, QString::number(page), u"--max-results"_s,
                   QString::number(kPurchasesPerPage), u"--platform"_s, u"iphone"_s},
                  kPageTimeout, {}, error);
        if (!output)
            return std::nullopt;
        const PurchaseSearch found = SearchPurchases(*output, row.id, page);
        if (found.verdict != PurchaseSearch::Verdict::GoOn)
            return found.id; // empty when the list has ended
    }
    return QString();
}
