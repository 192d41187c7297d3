#include "device/device_tool_client.h"

#include "core/tool_output.h"

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kRequestTimeout{40};

} // namespace

std::optional<DeviceReply> LastDeviceReply(const ToolResult &result)
{
    std::optional<QJsonObject> last;
    VisitJSON(result.out, [&last](const QJsonObject &object) {
        last = object;
        return true;
    });
    return last ? std::optional(ParseDeviceReply(*last)) : std::nullopt;
}

std::optional<DeviceReply> JudgeDeviceRun(const ToolResult &result, Error *error)
{
    std::optional<DeviceReply> reply = LastDeviceReply(result);
    if (result.code == 0 && reply && !reply->error)
        return reply;
    const QString reason = reply ? reply->error.value_or(QString()) : QString();
    Fail(error, ZarvoError(!reason.isEmpty() ? reason
                                             : u"Не удалось связаться с iPhone. Разблокируйте его и "
                                               "подтвердите доверие к Mac."_s));
    return std::nullopt;
}

std::optional<DeviceReply> device(Job &job, const QStringList &arguments, Error *error)
{
    const auto result = job.command(u"devicezarvo"_s, arguments, kRequestTimeout, {}, error);
    return result ? JudgeDeviceRun(*result, error) : std::nullopt;
}
