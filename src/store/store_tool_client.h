// Asking `ipatool`, and judging what it printed. Any thread.
#pragma once

#include "core/job.h"
#include "core/tool_runner.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

/// One app that the account owns.
struct Purchase
{
    QString id; ///< the store's numeric identifier, decimal
    QString bundleID;
};

/// One list of purchases. Entries without a bundle identifier are left out, and those beyond 20,000: the tool
/// is asked for a hundred.
struct PurchaseList
{
    QList<Purchase> apps;
    bool isEmpty = true;              ///< the tool's list was empty, whatever was left out
    std::optional<qint64> totalCount; ///< how many the account has, if the tool says so
};

/// What the JSON objects of a run say, parsed once.
struct StoreReply
{
    bool failed = false;            ///< one has a key `error`, or a `success` that is not true
    std::optional<QString> account; ///< `email` of the first with `success` true; empty when it has none
    QList<PurchaseList> purchases;  ///< one for each with a key `apps`
    std::optional<QString>
        reason; ///< what they report of a failure, unredacted; none when there is no object
};

/// Reads both outputs: the tool writes its JSON lines to either.
StoreReply ParseStoreReply(const ToolResult &result);

/// True when the exit status is 0 and no object tells of a failure; one that does outweighs all others.
bool StoreRunSucceeded(const ToolResult &result, const StoreReply &reply);

/// Runs the store tool with `arguments` behind the options that it always gets. Fails when it could not run
/// to its end, by its exit status, or when one of its objects tells of a failure: with one redacted message
/// for the user, and the kind of it. Blocks.
std::optional<StoreReply> store(Job &job, const QStringList &arguments, RunTimeout timeout,
                                const std::function<void()> &tick = {}, Error *error = nullptr);
