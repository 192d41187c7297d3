#include "install_messages.h"

#include "plist_value.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint64 kWhole = 100;

} // namespace

InstallMessage ReadInstallMessage(plist_t message)
{
    InstallMessage read;
    const plist_t error = PlistMember(message, "Error");
    if (error) {
        const QString description = PlistText(PlistMember(message, "ErrorDescription"));
        const auto detail = PlistWhole(PlistMember(message, "ErrorDetail")).value_or(0);
        read.kind = InstallMessage::Kind::Refused;
        read.refusal = InstallRefusal(PlistText(error), description, static_cast<quint32>(detail));
        return read;
    }
    const QString status = PlistText(PlistMember(message, "Status"));
    if (status.isEmpty())
        return read;
    read.kind = status == "Complete"_L1 ? InstallMessage::Kind::Complete : InstallMessage::Kind::Working;
    if (const auto percent = PlistWhole(PlistMember(message, "PercentComplete"));
        percent && *percent <= kWhole)
        read.percent = static_cast<int>(*percent);
    return read;
}
