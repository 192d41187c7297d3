#include "device/device_discovery.h"

#include "core/shown_text.h"
#include "device/device_tool_client.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kPollTimeout{15};

} // namespace

bool HasPhone(const QList<PhoneEntry> &phones, const QString &id)
{
    return std::any_of(phones.begin(), phones.end(), [&](const PhoneEntry &phone) { return phone.id == id; });
}

PhoneEntry FindPhone(const QList<PhoneEntry> &phones, const QString &id)
{
    const auto found =
        std::find_if(phones.begin(), phones.end(), [&](const PhoneEntry &phone) { return phone.id == id; });
    return found == phones.end() ? PhoneEntry() : *found;
}

QString PhoneTitle(const PhoneEntry &phone)
{
    return u"%1 · iOS %2"_s.arg(ShownName(phone.name), ShownName(phone.ios));
}

QString PhonePrompt(const QList<PhoneEntry> &phones)
{
    return phones.isEmpty() ? u"Подключите iPhone кабелем и выберите его в списке."_s
                            : u"iPhone найден. Выберите устройство в списке выше."_s;
}

QList<PhoneEntry> DiscoveredPhones(const std::optional<ToolResult> &result, Error *error)
{
    if (!result)
        return {};
    const std::optional<DeviceReply> reply = JudgeDeviceRun(*result, error);
    return reply ? reply->devices : QList<PhoneEntry>();
}

QList<PhoneEntry> discoverPhones(Job &job, Error *error)
{
    return DiscoveredPhones(job.command(u"devicezarvo"_s, {u"devices"_s}, kPollTimeout, {}, error), error);
}
