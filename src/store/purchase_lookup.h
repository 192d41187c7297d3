// Finding an app's store identifier among the account's purchases. Plain functions, any thread.
#pragma once

#include <QString>

#include <optional>

/// How many purchases one page holds.
inline constexpr int kPurchasesPerPage = 100;

/// What one page of purchases means for the search.
struct PurchaseSearch
{
    enum class Verdict { Found, Ended, GoOn };

    Verdict verdict = Verdict::GoOn;
    QString id; ///< the store identifier, decimal; only when found
};

/// Searches page `page` (from 1), as the store tool printed it, for the app `bundleID`. The objects of the
/// output are taken in order and the first that decides wins: a match, an empty list, or the announced total
/// reached.
PurchaseSearch SearchPurchases(const QString &output, const QString &bundleID, int page);
