// A conversation with one phone: its service for questions, and the services that it starts. Everything here
// blocks; one thread per session. Limits of time are the watch's.
#pragma once

#include "fault.h"
#include "plist_value.h"
#include "watch.h"

#include <libimobiledevice/afc.h>
#include <libimobiledevice/diagnostics_relay.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/property_list_service.h>

#include <memory>
#include <optional>

struct ClientDeleter
{
    void operator()(idevice_private *device) const { idevice_free(device); }
    void operator()(lockdownd_client_private *client) const { lockdownd_client_free(client); }
    void operator()(property_list_service_private *client) const
    {
        property_list_service_client_free(client);
    }
    void operator()(afc_client_private *client) const { afc_client_free(client); }
    void operator()(diagnostics_relay_client_private *client) const { diagnostics_relay_client_free(client); }
};
using DeviceHandle = std::unique_ptr<idevice_private, ClientDeleter>;
using LockdownClient = std::unique_ptr<lockdownd_client_private, ClientDeleter>;
using PropertyClient = std::unique_ptr<property_list_service_private, ClientDeleter>;
using FileClient = std::unique_ptr<afc_client_private, ClientDeleter>;
using DiagnosticsClient = std::unique_ptr<diagnostics_relay_client_private, ClientDeleter>;

/// The name and the system's version of a phone, asked without pairing: a phone that is locked or does not
/// trust this computer yet tells them too, and shows nothing on its screen. Empty texts where it does not.
struct PhoneSummary
{
    QString name;
    QString ios;
};
PhoneSummary AskSummary(const QString &id);

/// An encrypted session. Its destructor says goodbye to the phone, which can block as long as anything else:
/// the answer is given before.
class PhoneSession
{
public:
    /// Opens the session. A phone that does not know this computer yet asks its owner for trust.
    static std::optional<PhoneSession> open(const QString &id, Watch &watch, Failure *failure = nullptr);

    /// A value, or all values of the domain when `key` is null. A null domain is the phone's own.
    Plist value(const char *domain, const char *key, Failure *failure = nullptr);

    /// Start a service of the phone and connect to it; null on failure.
    PropertyClient startPropertyService(const char *name, Failure *failure = nullptr);
    FileClient startFileService(Failure *failure = nullptr);
    DiagnosticsClient startDiagnostics(Failure *failure = nullptr);

    Watch &watch() { return *m_watch; }

private:
    PhoneSession(DeviceHandle device, LockdownClient client, Watch &watch);

    template <typename Client, typename Connect>
    Client start(const char *name, Connect connect, Failure (*judge)(int), Failure *failure);

    DeviceHandle m_device; // outlives the client
    LockdownClient m_client;
    Watch *m_watch;
};
