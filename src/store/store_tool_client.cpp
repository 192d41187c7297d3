#include "store/store_tool_client.h"

#include "core/tool_output.h"
#include "store/diagnostic_redaction.h"
#include "store/known_secrets.h"
#include "store/store_failure_messages.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kMostPurchases = 20'000;

bool saysItFailed(const QJsonObject &object)
{
    const auto success = object.constFind("success"_L1);
    return object.contains("error"_L1) || (success != object.constEnd() && !JSONTruth(*success));
}

PurchaseList parsePurchases(const QJsonObject &object)
{
    const QJsonArray array = object["apps"_L1].toArray();
    PurchaseList list;
    list.isEmpty = array.isEmpty();
    if (const auto total = object.constFind("totalCount"_L1); total != object.constEnd())
        list.totalCount = IntegerValue(JSONText(*total));
    for (const auto &element : array) {
        const QJsonObject entry = element.toObject();
        if (QString bundleID = JSONText(entry["bundleID"_L1]); !bundleID.isEmpty())
            list.apps.append({JSONText(entry["id"_L1]), std::move(bundleID)});
        if (list.apps.size() == kMostPurchases)
            break;
    }
    return list;
}

} // namespace

StoreReply ParseStoreReply(const ToolResult &result)
{
    StoreReply reply;
    ReportedErrors errors;
    VisitJSON(result.out + u'\n' + result.err, [&](const QJsonObject &object) {
        errors.take(object);
        reply.failed = reply.failed || saysItFailed(object);
        if (!reply.account && JSONTruth(object["success"_L1]))
            reply.account = JSONText(object["email"_L1]);
        if (object.contains("apps"_L1) && reply.purchases.size() < kMostPurchases)
            reply.purchases.append(parsePurchases(object));
        return true;
    });
    reply.reason = errors.text();
    return reply;
}

bool StoreRunSucceeded(const ToolResult &result, const StoreReply &reply)
{
    return result.code == 0 && !reply.failed;
}

std::optional<StoreReply> store(Job &job, const QStringList &arguments, RunTimeout timeout,
                                const std::function<void()> &tick, Error *error)
{
    const QStringList all = QStringList{u"--non-interactive"_s, u"--format"_s, u"json"_s} + arguments;
    Error failure;
    const auto result = job.command(u"ipatool"_s, all, timeout, tick, &failure);
    if (!result) {
        if (failure.kind == Error::Kind::Mute)
            failure.advice = MuteToolAdvice();
        Fail(error, failure);
        return std::nullopt;
    }
    StoreReply reply = ParseStoreReply(*result);
    if (StoreRunSucceeded(*result, reply))
        return reply;
    const KnownSecrets none;
    const QString diagnostic = SafeDiagnostic(*result, reply.reason, job.secrets() ? *job.secrets() : none);
    Fail(error, StoreRunError(result->code, diagnostic));
    return std::nullopt;
}
