// What answers at the ports of a phone.
#pragma once

#include "phone.h"

#include <memory>
#include <optional>

class Bus;
class Channel;

/// A client's connection to one port of a phone. The services block until it has ended; each is run on a
/// thread of its own.
struct Connection
{
    Bus &bus;
    std::shared_ptr<Phone> phone;
    std::shared_ptr<Channel> channel;
    std::shared_ptr<const PhoneConfig> config; ///< as it was when the client connected
    std::shared_ptr<Damager> damager;

    bool mute(const char *place) const;
    /// The cable is pulled, or so it looks from this connection.
    void drop() const;
};

constexpr quint16 kLockdownPort = 62078;

/// Whether the phone has a service of this name.
bool hasService(const QString &name);

/// What lies behind the port; nothing when nobody listens there. A service's port takes one connection.
std::optional<ServiceTicket> takePort(const Connection &connection, quint16 port);
/// Serves the client until it has gone.
void serve(const Connection &connection, const ServiceTicket &ticket);

void serveLockdown(const Connection &connection);
void serveInstallationProxy(const Connection &connection);
void serveAfc(const Connection &connection);
void serveDiagnostics(const Connection &connection);
void serveNotifications(const Connection &connection);
