// The diagnostics relay, as far as the battery goes, and the proxy of notifications.
#include "channel.h"
#include "plist_port.h"
#include "services.h"

using namespace Qt::StringLiterals;

namespace {

const QString kEntry = u"entry"_s;

QVariantMap registryEntry(const QVariantMap &battery, const QVariantMap &request)
{
    const QString entry = battery.value(kEntry, u"AppleSmartBattery"_s).toString();
    const QString type = request.value(u"EntryClass"_s).toString();
    const bool asked =
        request.value(u"EntryName"_s) == entry || type == entry || type == "IOPMPowerSource"_L1;
    if (battery.isEmpty() || !asked)
        return {};
    QVariantMap reading = battery;
    reading.remove(kEntry);
    return {{u"IORegistry"_s, reading}};
}

QVariantMap gasGauge(const QVariantMap &battery)
{
    if (battery.isEmpty())
        return {};
    // A phone says 100 for the full capacity, whatever is left of it.
    return {{u"GasGauge"_s, QVariantMap{{u"CycleCount"_s, battery.value(u"CycleCount"_s)},
                                        {u"DesignCapacity"_s, battery.value(u"DesignCapacity"_s)},
                                        {u"FullChargeCapacity"_s, 100},
                                        {u"Status"_s, u"Success"_s}}}};
}

} // namespace

void serveDiagnostics(const Connection &connection)
{
    PlistPort port(*connection.channel, connection.config->format, Layer::Diagnostics, connection.damager);
    const QVariantMap &battery = connection.config->battery;
    while (const auto request = port.receive()) {
        const QString name = request->value(u"Request"_s).toString();
        QVariantMap reply{{u"Status"_s, u"Success"_s}};
        if (name == "IORegistry"_L1)
            reply.insert(u"Diagnostics"_s, registryEntry(battery, *request));
        else if (name == "GasGauge"_L1 || name == "All"_L1)
            reply.insert(u"Diagnostics"_s, gasGauge(battery));
        else if (name != "Goodbye"_L1)
            reply = {{u"Status"_s, u"UnknownRequest"_s}};
        if (!port.send(reply) || name == "Goodbye"_L1)
            return;
    }
}

// Nothing is ever notified: clients want the service to be there, and to say goodbye.
void serveNotifications(const Connection &connection)
{
    PlistPort port(*connection.channel, PlistFormat::Xml, Layer::Service, nullptr);
    while (const auto request = port.receive()) {
        if (request->value(u"Command"_s) == u"Shutdown"_s) {
            port.send({{u"Command"_s, u"ProxyDeath"_s}});
            return;
        }
    }
}
