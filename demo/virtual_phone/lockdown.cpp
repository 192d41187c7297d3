// Lockdown: what a phone is like, who may talk to it, and the ports of its services.
#include "channel.h"
#include "plist_port.h"
#include "services.h"

#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

const QString kDiskUsage = u"com.apple.disk_usage"_s;
const QString kBattery = u"com.apple.mobile.battery"_s;
constexpr qint64 kSystemBytes = 12'000'000'000; // of the storage, out of reach for apps

/// What a phone tells of itself to anyone.
const QStringList kPublicValues{u"BuildVersion"_s,    u"DeviceClass"_s,   u"DeviceName"_s,
                                u"DevicePublicKey"_s, u"ProductType"_s,   u"ProductVersion"_s,
                                u"UniqueDeviceID"_s,  u"HardwareModel"_s, u"ProductName"_s};

QVariantMap generalValues(const Connection &connection)
{
    const PhoneConfig &config = *connection.config;
    return {{u"ActivationState"_s, u"Activated"_s},
            {u"BuildVersion"_s, config.buildVersion},
            {u"CPUArchitecture"_s, u"arm64e"_s},
            {u"DeviceClass"_s, u"iPhone"_s},
            {u"DeviceName"_s, config.name},
            {u"DevicePublicKey"_s, publicPem(connection.phone->key())},
            {u"PasswordProtected"_s, config.faults.locked},
            {u"ProductName"_s, u"iPhone OS"_s},
            {u"ProductType"_s, config.productType},
            {u"ProductVersion"_s, config.productVersion},
            {u"SerialNumber"_s, config.serial},
            {u"TimeZone"_s, u"Europe/Moscow"_s},
            {u"TrustedHostAttached"_s, true},
            {u"UniqueDeviceID"_s, config.udid}};
}

QVariantMap diskUsage(const Connection &connection)
{
    const qint64 capacity = connection.config->capacity;
    const qint64 system = std::min(kSystemBytes, capacity / 4);
    const qint64 free = connection.phone->freeBytes();
    return {{u"TotalDiskCapacity"_s, capacity},
            {u"TotalSystemCapacity"_s, system},
            {u"TotalDataCapacity"_s, capacity - system},
            {u"TotalDataAvailable"_s, free},
            {u"AmountDataAvailable"_s, free},
            {u"TotalSystemAvailable"_s, 0}};
}

QVariantMap battery(const PhoneConfig &config)
{
    if (config.battery.isEmpty())
        return {};
    const int charge = config.battery.value(u"CurrentCapacity"_s).toInt();
    return {{u"BatteryCurrentCapacity"_s, charge},
            {u"BatteryIsCharging"_s, config.battery.value(u"IsCharging"_s, false).toBool()},
            {u"ExternalChargeCapable"_s, true},
            {u"ExternalConnected"_s, config.battery.value(u"ExternalConnected"_s, true).toBool()},
            {u"FullyCharged"_s, config.battery.value(u"FullyCharged"_s, charge == 100).toBool()},
            {u"GasGaugeCapability"_s, true},
            {u"HasBattery"_s, true}};
}

QVariantMap valuesOf(const Connection &connection, const QString &domain)
{
    QVariantMap values;
    if (domain.isEmpty())
        values = generalValues(connection);
    else if (domain == kDiskUsage)
        values = diskUsage(connection);
    else if (domain == kBattery)
        values = battery(*connection.config);
    const QVariantMap own = connection.config->values.value(domain).toMap();
    for (auto value = own.begin(); value != own.end(); ++value) {
        if (value->isNull())
            values.remove(value.key());
        else
            values.insert(value.key(), *value);
    }
    return values;
}

/// One client's talk with lockdown.
class Lockdown
{
public:
    explicit Lockdown(const Connection &connection)
        : m_connection(connection)
        , m_faults(connection.config->faults)
        , m_port(*connection.channel, PlistFormat::Xml, Layer::Lockdown, connection.damager)
    {
    }

    void run();

private:
    bool handle(const QString &name, const QVariantMap &request);
    bool reply(const QString &name, QVariantMap more = {});
    bool refuse(const QString &name, const QString &error);
    bool getValue(const QVariantMap &request);
    bool pair(const QVariantMap &request);
    bool unpair(const QVariantMap &request);
    bool validatePair(const QVariantMap &request);
    bool startSession(const QVariantMap &request);
    bool stopSession();
    bool startService(const QVariantMap &request);

    const Connection &m_connection;
    const Faults &m_faults;
    PlistPort m_port;
    QString m_session; ///< empty: none
    QString m_hostId;
};

void Lockdown::run()
{
    while (m_connection.channel->awaitReadable(m_connection.config->idleLimit)) {
        const auto request = m_port.receive();
        if (!request || !handle(request->value(u"Request"_s).toString(), *request))
            return;
    }
}

bool Lockdown::handle(const QString &name, const QVariantMap &request)
{
    if (name == "QueryType"_L1)
        return reply(name, {{u"Type"_s, u"com.apple.mobile.lockdown"_s}});
    if (name == "GetValue"_L1)
        return getValue(request);
    if (name == "SetValue"_L1)
        return refuse(name, u"SetProhibited"_s);
    if (name == "RemoveValue"_L1)
        return refuse(name, u"RemoveProhibited"_s);
    if (name == "Pair"_L1)
        return pair(request);
    if (name == "ValidatePair"_L1)
        return validatePair(request);
    if (name == "Unpair"_L1)
        return unpair(request);
    if (name == "StartSession"_L1)
        return startSession(request);
    if (name == "StopSession"_L1)
        return stopSession();
    if (name == "StartService"_L1)
        return startService(request);
    if (name == "Goodbye"_L1) {
        reply(name);
        return false;
    }
    return refuse(name, u"InvalidRequest"_s);
}

bool Lockdown::reply(const QString &name, QVariantMap more)
{
    more.insert(u"Request"_s, name);
    return m_port.send(more);
}

bool Lockdown::refuse(const QString &name, const QString &error)
{
    return reply(name, {{u"Error"_s, error}});
}

bool Lockdown::getValue(const QVariantMap &request)
{
    const QString domain = request.value(u"Domain"_s).toString();
    const QString key = request.value(u"Key"_s).toString();
    QVariantMap values = valuesOf(m_connection, domain);
    QVariantMap answer;
    if (!domain.isEmpty())
        answer.insert(u"Domain"_s, domain);
    if (m_session.isEmpty()) {
        if (!key.isEmpty() && values.contains(key) && !(domain.isEmpty() && kPublicValues.contains(key)))
            return refuse(u"GetValue"_s, u"GetProhibited"_s);
        values.removeIf(
            [&](const auto &value) { return !domain.isEmpty() || !kPublicValues.contains(value.key()); });
    }
    if (key.isEmpty()) {
        if (m_connection.mute("values")) {
            m_connection.channel->swallow();
            return false;
        }
        answer.insert(u"Value"_s, values);
        return reply(u"GetValue"_s, answer);
    }
    if (!values.contains(key))
        return refuse(u"GetValue"_s, u"MissingValue"_s);
    answer.insert(u"Key"_s, key);
    answer.insert(u"Value"_s, values[key]);
    return reply(u"GetValue"_s, answer);
}

bool Lockdown::pair(const QVariantMap &request)
{
    const QString name = u"Pair"_s;
    if (m_faults.locked)
        return refuse(name, u"PasswordProtected"_s);
    if (m_faults.refused)
        return refuse(name, u"UserDeniedPairing"_s);
    if (m_faults.untrusted || m_faults.revoked)
        return refuse(name, u"PairingDialogResponsePending"_s);
    const QVariantMap record = request.value(u"PairRecord"_s).toMap();
    if (record.value(u"HostID"_s).toString().isEmpty() ||
        !makeTlsContext(record, m_connection.phone->key(), false))
        return refuse(name, u"InvalidPairRecord"_s);
    m_connection.phone->trust(record);
    return reply(name, {{u"EscrowBag"_s, QByteArray(32, '\x2A')}});
}

bool Lockdown::validatePair(const QVariantMap &request)
{
    const QString host = request.value(u"PairRecord"_s).toMap().value(u"HostID"_s).toString();
    if (m_faults.locked)
        return refuse(u"ValidatePair"_s, u"PasswordProtected"_s);
    if (m_faults.revoked || !m_connection.phone->trusted(host))
        return refuse(u"ValidatePair"_s, u"InvalidHostID"_s);
    return reply(u"ValidatePair"_s);
}

bool Lockdown::unpair(const QVariantMap &request)
{
    const QString host = request.value(u"PairRecord"_s).toMap().value(u"HostID"_s).toString();
    return m_connection.phone->distrust(host) ? reply(u"Unpair"_s) : refuse(u"Unpair"_s, u"InvalidHostID"_s);
}

bool Lockdown::startSession(const QVariantMap &request)
{
    const QString name = u"StartSession"_s;
    if (m_connection.mute("session")) {
        m_connection.channel->swallow();
        return false;
    }
    if (!m_session.isEmpty())
        return refuse(name, u"SessionActive"_s);
    if (m_faults.locked)
        return refuse(name, u"PasswordProtected"_s);
    const QString host = request.value(u"HostID"_s).toString();
    const auto record = m_connection.phone->trusted(host);
    if (m_faults.revoked || m_faults.untrusted || m_faults.refused || !record)
        return refuse(name, u"InvalidHostID"_s);
    const bool tls = m_connection.config->tls;
    const TlsContext context =
        tls ? makeTlsContext(*record, m_connection.phone->key(), m_faults.wrongKeys) : nullptr;
    if (tls && !context)
        return refuse(name, u"InvalidPairRecord"_s);
    m_session = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    m_hostId = host;
    if (!reply(name, {{u"SessionID"_s, m_session}, {u"EnableSessionSSL"_s, tls}}))
        return false;
    return !tls || m_connection.channel->encrypt(context.get(), false);
}

bool Lockdown::stopSession()
{
    if (m_session.isEmpty())
        return refuse(u"StopSession"_s, u"SessionInactive"_s);
    m_session.clear();
    const bool sent = reply(u"StopSession"_s);
    m_connection.channel->decrypt();
    return sent;
}

bool Lockdown::startService(const QVariantMap &request)
{
    const QString name = u"StartService"_s;
    const QString service = request.value(u"Service"_s).toString();
    if (m_session.isEmpty())
        return refuse(name, u"SessionInactive"_s);
    if (!hasService(service))
        return refuse(name, u"InvalidService"_s);
    QVariantMap answer{{u"Service"_s, service},
                       {u"Port"_s, m_connection.phone->openPort({service, m_hostId})}};
    if (m_connection.config->tls)
        answer.insert(u"EnableServiceSSL"_s, true);
    return reply(name, answer);
}

} // namespace

void serveLockdown(const Connection &connection)
{
    Lockdown(connection).run();
}
