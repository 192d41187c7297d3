#include "services.h"

#include "bus.h"
#include "channel.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

struct Service
{
    QLatin1StringView name;
    void (*serve)(const Connection &) = nullptr;
};

const QString kLockdown = u"com.apple.mobile.lockdown"_s;

constexpr Service kServices[] = {
    {"com.apple.afc"_L1, serveAfc},
    {"com.apple.mobile.installation_proxy"_L1, serveInstallationProxy},
    {"com.apple.mobile.diagnostics_relay"_L1, serveDiagnostics},
    {"com.apple.mobile.notification_proxy"_L1, serveNotifications},
};

const Service *find(const QString &name)
{
    const auto *found = std::find_if(std::begin(kServices), std::end(kServices),
                                     [&](const Service &service) { return name == service.name; });
    return found == std::end(kServices) ? nullptr : found;
}

} // namespace

bool Connection::mute(const char *place) const
{
    return config->faults.mute == QLatin1StringView(place);
}

void Connection::drop() const
{
    if (config->faults.unplug)
        bus.unplug(phone);
    channel->interrupt();
}

bool hasService(const QString &name)
{
    return find(name) != nullptr;
}

std::optional<ServiceTicket> takePort(const Connection &connection, quint16 port)
{
    return port == kLockdownPort ? ServiceTicket{kLockdown, {}} : connection.phone->takePort(port);
}

void serve(const Connection &connection, const ServiceTicket &ticket)
{
    if (ticket.service == kLockdown) {
        serveLockdown(connection);
        return;
    }
    if (connection.config->tls) {
        const auto record = connection.phone->trusted(ticket.hostId);
        const TlsContext context =
            record ? makeTlsContext(*record, connection.phone->key(), connection.config->faults.wrongKeys)
                   : nullptr;
        if (!context || !connection.channel->encrypt(context.get(), true))
            return;
    }
    find(ticket.service)->serve(connection);
}
