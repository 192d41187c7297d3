#include "app_records.h"
#include "commands.h"
#include "deadlines.h"
#include "detail_lines.h"
#include "diagnostics.h"
#include "installation_service.h"
#include "phone_session.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kProbe = "DeviceName"; // every phone has one
constexpr auto kDiskDomain = "com.apple.disk_usage";
constexpr auto kBatteryDomain = "com.apple.mobile.battery";
constexpr std::initializer_list<const char *> kAppAttributes{
    "CFBundleIdentifier",         "CFBundleDisplayName", "CFBundleName",
    "CFBundleShortVersionString", "CFBundleVersion",     "iTunesMetadata"};
constexpr qsizetype kMostApps = 20'000; // more than any phone has room for: what goes on and on is no list
/// Where phones of different ages keep the readings of the battery: names and classes of registry entries.
constexpr std::pair<const char *, const char *> kGauges[]{
    {"AppleSmartBattery", nullptr}, {"AppleARMPMUCharger", nullptr}, {nullptr, "IOPMPowerSource"}};

Plist browseCommand()
{
    Plist attributes(plist_new_array());
    for (const char *attribute : kAppAttributes)
        plist_array_append_item(attributes.get(), plist_new_string(attribute));
    Plist options(plist_new_dict());
    plist_dict_set_item(options.get(), "ApplicationType", plist_new_string("User"));
    plist_dict_set_item(options.get(), "ReturnAttributes", attributes.release());
    Plist command(plist_new_dict());
    plist_dict_set_item(command.get(), "Command", plist_new_string("Browse"));
    plist_dict_set_item(command.get(), "ClientOptions", options.release());
    return command;
}

std::optional<QJsonArray> readApps(InstallationService &service, Failure *failure)
{
    if (!service.send(browseCommand(), failure))
        return std::nullopt;
    QJsonArray apps;
    for (;;) {
        const Plist page = service.receive(CurrentDeadlines().step, failure);
        if (!page)
            return std::nullopt;
        if (const QString error = PlistText(PlistMember(page.get(), "Error")); !error.isEmpty()) {
            Fail(failure, {Fault::Rejected, u"Телефон отказал в запросе: %1."_s.arg(error), 0});
            return std::nullopt;
        }
        AppendAppRecords(page.get(), apps);
        if (apps.size() > kMostApps) {
            Fail(failure, FailureOf(Fault::BadReply));
            return std::nullopt;
        }
        if (PlistText(PlistMember(page.get(), "Status")) == "Complete"_L1)
            return apps;
    }
}

/// The failure of a request, seen once more: the library takes an answer that a broken connection cut short
/// for an unreadable one. Whether the phone is still there, the session tells.
Failure toldApart(std::optional<PhoneSession> &session, const Failure &failure)
{
    Failure reason;
    if (!session || failure.fault != Fault::BadReply || session->value(nullptr, kProbe, &reason))
        return failure;
    return reason;
}

/// A reading that a phone may decline to give: null then. False only for a failure of the conversation.
bool readOptional(PhoneSession &session, const char *domain, Plist &values, Failure *failure)
{
    Failure reason;
    values = session.value(domain, nullptr, &reason);
    return values || reason.fault == Fault::Rejected || Fail(failure, reason);
}

/// The battery's entry in the phone's registry, and all around it; null when this phone has none.
bool readGauge(DiagnosticsClient &client, Watch &watch, Plist &answer, Failure *failure)
{
    for (const auto &[name, kind] : kGauges) {
        watch.step(CurrentDeadlines().step);
        plist_t raw = nullptr;
        const int code = diagnostics_relay_query_ioregistry_entry(client.get(), name, kind, &raw);
        Diagnose(u"ask for the battery's readings: %1"_s.arg(code));
        Plist reply(raw);
        const Failure reason = code == DIAGNOSTICS_RELAY_E_SUCCESS ? Failure() : DiagnosticsFailure(code);
        if (code != DIAGNOSTICS_RELAY_E_SUCCESS && reason.fault != Fault::Rejected)
            return Fail(failure, reason);
        const plist_t entry = PlistMember(reply.get(), "IORegistry");
        if (entry && plist_get_node_type(entry) == PLIST_DICT && plist_dict_get_size(entry) > 0) {
            answer = std::move(reply);
            return true;
        }
    }
    return true;
}

} // namespace

void AnswerApps(const QString &phone, Watch &watch, Answer &answer)
{
    Failure failure;
    auto session = PhoneSession::open(phone, watch, &failure);
    auto service = session ? InstallationService::start(*session, &failure) : std::nullopt;
    const auto apps = service ? readApps(*service, &failure) : std::nullopt;
    if (apps)
        answer.give({{"apps"_L1, *apps}});
    else
        answer.fail(toldApart(session, failure));
    watch.step(CurrentDeadlines().goodbye);
}

void AnswerInfo(const QString &phone, Watch &watch, Answer &answer)
{
    Failure failure;
    auto session = PhoneSession::open(phone, watch, &failure);
    const Plist values = session ? session->value(nullptr, nullptr, &failure) : nullptr;
    Plist disk;
    if (values && readOptional(*session, kDiskDomain, disk, &failure))
        answer.give({{"details"_L1, InfoLines(values.get(), disk.get())}});
    else
        answer.fail(toldApart(session, failure));
    watch.step(CurrentDeadlines().goodbye);
}

void AnswerBattery(const QString &phone, Watch &watch, Answer &answer)
{
    Failure failure;
    auto session = PhoneSession::open(phone, watch, &failure);
    Plist state;
    Plist gauge;
    DiagnosticsClient diagnostics;
    bool well = session && readOptional(*session, kBatteryDomain, state, &failure);
    if (well) {
        diagnostics = session->startDiagnostics(&failure);
        well =
            diagnostics ? readGauge(diagnostics, watch, gauge, &failure) : failure.fault == Fault::Rejected;
    }
    if (well)
        answer.give({{"details"_L1, BatteryLines(state.get(), PlistMember(gauge.get(), "IORegistry"))}});
    else
        answer.fail(toldApart(session, failure));
    watch.step(CurrentDeadlines().goodbye);
}
