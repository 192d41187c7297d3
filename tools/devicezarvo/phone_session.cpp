#include "phone_session.h"

#include "deadlines.h"
#include "diagnostics.h"
#include "usbmuxd_service.h"

#include <cstdlib>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kClientName = "devicezarvo";
// The cable first; a phone that is paired for it may be reached through the network.
constexpr auto kLookup = static_cast<idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK);

DeviceHandle findDevice(const QString &id, Failure *failure)
{
    idevice_t device = nullptr;
    const int code = idevice_new_with_options(&device, id.toUtf8().constData(), kLookup);
    Diagnose(u"look up the phone: %1"_s.arg(code));
    if (code != IDEVICE_E_SUCCESS)
        Fail(failure, DeviceFailure(code));
    return DeviceHandle(device);
}

/// 0 when the phone takes part in the session. That the session began does not prove it: a phone that turns
/// the keys of this computer down does so after that.
int proveSession(lockdownd_client_t client)
{
    char *type = nullptr;
    const int code = lockdownd_query_type(client, &type);
    std::free(type);
    return code;
}

/// 0 when the phone answers without a session.
int reach(idevice_t device)
{
    lockdownd_client_t raw = nullptr;
    const int code = lockdownd_client_new(device, &raw, kClientName);
    const LockdownClient client(raw);
    return code == LOCKDOWN_E_SUCCESS ? proveSession(raw) : code;
}

/// Why the session did not come about, the library having said `code`. A pulled cable and keys that are
/// turned down look alike at times, and a cut answer like an unreadable one: whether the phone is still there
/// tells.
Failure openingFailure(idevice_t device, int code)
{
    Failure reason = LockdownFailure(code);
    if (reason.fault != Fault::Lost && reason.fault != Fault::BadReply)
        return reason;
    const int reached = reach(device);
    Diagnose(u"reach the phone: %1"_s.arg(reached));
    if (reached == LOCKDOWN_E_SUCCESS)
        return reason.fault == Fault::Lost ? FailureOf(Fault::Revoked, code) : reason;
    return reason.fault == Fault::BadReply ? LockdownFailure(reached) : reason;
}

/// What went wrong within a session. Its keys are proven, so that encryption breaks with the connection only.
Failure sessionFailure(int code)
{
    return code == LOCKDOWN_E_SSL_ERROR ? FailureOf(Fault::Lost, code) : LockdownFailure(code);
}

} // namespace

PhoneSummary AskSummary(const QString &id)
{
    const DeviceHandle device = findDevice(id, nullptr);
    lockdownd_client_t raw = nullptr;
    // Without a handshake: it would pair.
    if (!device || lockdownd_client_new(device.get(), &raw, kClientName) != LOCKDOWN_E_SUCCESS)
        return {};
    const LockdownClient client(raw);
    const auto ask = [&client](const char *key) {
        plist_t value = nullptr;
        const int code = lockdownd_get_value(client.get(), nullptr, key, &value);
        Diagnose(u"ask %1: %2"_s.arg(QLatin1StringView(key)).arg(code));
        return PlistText(Plist(value).get());
    };
    return {ask("DeviceName"), ask("ProductVersion")};
}

PhoneSession::PhoneSession(DeviceHandle device, LockdownClient client, Watch &watch)
    : m_device(std::move(device))
    , m_client(std::move(client))
    , m_watch(&watch)
{
}

std::optional<PhoneSession> PhoneSession::open(const QString &id, Watch &watch, Failure *failure)
{
    watch.step(CurrentDeadlines().step, Fault::ServiceSilent);
    if (const auto fault = ServiceFault()) {
        Fail(failure, FailureOf(*fault));
        return std::nullopt;
    }
    DeviceHandle device = findDevice(id, failure);
    if (!device)
        return std::nullopt;
    watch.step(CurrentDeadlines().step);
    lockdownd_client_t raw = nullptr;
    int code = lockdownd_client_new_with_handshake(device.get(), &raw, kClientName);
    LockdownClient client(raw);
    Diagnose(u"open a session: %1"_s.arg(code));
    if (code == LOCKDOWN_E_SUCCESS) {
        watch.step(CurrentDeadlines().step);
        code = proveSession(raw);
        Diagnose(u"use the session: %1"_s.arg(code));
    }
    if (code == LOCKDOWN_E_SUCCESS)
        return PhoneSession(std::move(device), std::move(client), watch);
    watch.step(CurrentDeadlines().step);
    Fail(failure, openingFailure(device.get(), code));
    return std::nullopt;
}

Plist PhoneSession::value(const char *domain, const char *key, Failure *failure)
{
    m_watch->step(CurrentDeadlines().step);
    plist_t value = nullptr;
    const int code = lockdownd_get_value(m_client.get(), domain, key, &value);
    Diagnose(u"read values: %1"_s.arg(code));
    if (code != LOCKDOWN_E_SUCCESS)
        Fail(failure, sessionFailure(code));
    return Plist(value);
}

template <typename Client, typename Connect>
Client PhoneSession::start(const char *name, Connect connect, Failure (*judge)(int), Failure *failure)
{
    m_watch->step(CurrentDeadlines().step);
    lockdownd_service_descriptor_t service = nullptr;
    int code = lockdownd_start_service(m_client.get(), name, &service);
    Diagnose(u"start %1: %2"_s.arg(QLatin1StringView(name)).arg(code));
    if (code != LOCKDOWN_E_SUCCESS) {
        Fail(failure, sessionFailure(code));
        return {};
    }
    typename Client::pointer client = nullptr;
    m_watch->step(CurrentDeadlines().step);
    code = connect(m_device.get(), service, &client);
    lockdownd_service_descriptor_free(service);
    Diagnose(u"connect to %1: %2"_s.arg(QLatin1StringView(name)).arg(code));
    if (code != 0)
        Fail(failure, judge(code));
    return Client(client);
}

PropertyClient PhoneSession::startPropertyService(const char *name, Failure *failure)
{
    return start<PropertyClient>(name, property_list_service_client_new, PropertyServiceFailure, failure);
}

FileClient PhoneSession::startFileService(Failure *failure)
{
    return start<FileClient>(AFC_SERVICE_NAME, afc_client_new, FileServiceFailure, failure);
}

DiagnosticsClient PhoneSession::startDiagnostics(Failure *failure)
{
    return start<DiagnosticsClient>(DIAGNOSTICS_RELAY_SERVICE_NAME, diagnostics_relay_client_new,
                                    DiagnosticsFailure, failure);
}
