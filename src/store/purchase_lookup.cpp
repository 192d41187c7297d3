#include "store/purchase_lookup.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kPageTimeout{180};
constexpr int kLastPage = 100;

PurchaseSearch searchList(const PurchaseList &list, const QString &bundleID, int page)
{
    using Verdict = PurchaseSearch::Verdict;
    const auto found = std::find_if(list.apps.begin(), list.apps.end(), [&](const Purchase &purchase) {
        return !bundleID.isEmpty() && purchase.bundleID == bundleID;
    });
    if (found != list.apps.end())
        return {Verdict::Found, found->id};
    const bool reached = list.totalCount && qint64{page} * kPurchasesPerPage >= *list.totalCount;
    return {list.isEmpty || reached ? Verdict::Ended : Verdict::GoOn};
}

} // namespace

PurchaseSearch SearchPurchases(const StoreReply &reply, const QString &bundleID, int page)
{
    PurchaseSearch search;
    for (const PurchaseList &list : reply.purchases) {
        search = searchList(list, bundleID, page);
        if (search.verdict != PurchaseSearch::Verdict::GoOn)
            break;
    }
    return search;
}

std::optional<QString> purchaseID(Job &job, const AppRow &row, Error *error)
{
    if (!row.storeID.isEmpty())
        return row.storeID;
    for (int page = 1; page <= kLastPage; ++page) {
        job.setTransfer(u"Поиск в покупках, страница %1…"_s.arg(page));
        const auto reply = store(job,
                                 {u"list-purchases"_s, u"--page"_s, QString::number(page), u"--max-results"_s,
                                  QString::number(kPurchasesPerPage), u"--platform"_s, u"iphone"_s},
                                 kPageTimeout, {}, error);
        if (!reply)
            return std::nullopt;
        const PurchaseSearch found = SearchPurchases(*reply, row.id, page);
        if (found.verdict != PurchaseSearch::Verdict::GoOn)
            return found.id; // empty when the list has ended
    }
    return QString();
}
