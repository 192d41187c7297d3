// Finding an app's store identifier among the account's purchases. Any thread.
#pragma once

#include "core/job.h"
#include "device/device_records.h"
#include "store/store_tool_client.h"

#include <QString>

#include <optional>

/// How many purchases one page holds.
inline constexpr int kPurchasesPerPage = 100;

/// What one page of purchases means for the search.
struct PurchaseSearch
{
    enum class Verdict { Found, Ended, GoOn };

    Verdict verdict = Verdict::GoOn;
    QString id = {}; ///< the store identifier, decimal; only when found
};

/// Searches page `page` (from 1) for the app `bundleID`. The lists of the reply are taken in order and the
/// first that decides wins: a match, an empty list, or the announced total reached.
PurchaseSearch SearchPurchases(const StoreReply &reply, const QString &bundleID, int page);

/// The row's own store identifier, or the one among the account's purchases: asks the store tool page by
/// page, at most 10,000 purchases. Empty when the app is not among them. Blocks.
std::optional<QString> purchaseID(Job &job, const AppRow &row, Error *error = nullptr);
