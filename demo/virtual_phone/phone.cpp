#include "phone.h"

#include "channel.h"

#include <QDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr quint16 kFirstPort = 49152; // of the range that is nobody's
constexpr size_t kMaxPorts = 256;

QString appsFolder(const PhoneConfig &config, const QString &folder)
{
    return config.appsDirectory.isEmpty() ? folder + u"/Apps"_s : config.appsDirectory;
}

} // namespace

Phone::Phone(const PhoneConfig &config, const QString &folder, const HostIdentity &host)
    : m_udid(config.udid)
    , m_folder(folder)
    , m_key(makeKey())
    , m_firstRecord(makePairRecord(host, m_key, config.udid))
    , m_apps(appsFolder(config, folder))
    , m_media(folder + u"/Media"_s)
    , m_lastPort(kFirstPort)
{
    QDir(m_folder).mkpath(u"Packages"_s);
    if (config.paired)
        trust(m_firstRecord);
    configure(config);
}

std::shared_ptr<const PhoneConfig> Phone::config() const
{
    const std::scoped_lock lock(m_mutex);
    return m_config;
}

std::shared_ptr<Damager> Phone::damager() const
{
    const std::scoped_lock lock(m_mutex);
    return m_damager;
}

void Phone::configure(const PhoneConfig &config)
{
    m_apps.setPreinstalled(config.apps);
    const std::scoped_lock lock(m_mutex);
    m_config = std::make_shared<const PhoneConfig>(config);
    m_damager = config.faults.damage ? std::make_shared<Damager>(*config.faults.damage) : nullptr;
}

qint64 Phone::freeBytes() const
{
    const auto now = config();
    if (now->faults.full)
        return 0;
    return std::max<qint64>(0, now->capacity - now->used - m_media.bytes() - m_apps.bytes());
}

QString Phone::packagePath()
{
    const std::scoped_lock lock(m_mutex);
    return m_folder + u"/Packages/%1.ipa"_s.arg(++m_packages);
}

std::optional<QVariantMap> Phone::trusted(const QString &hostId) const
{
    const std::scoped_lock lock(m_mutex);
    const auto found = m_trusted.find(hostId);
    return found == m_trusted.end() ? std::nullopt : std::optional(*found);
}

void Phone::trust(const QVariantMap &pairRecord)
{
    QVariantMap record = pairRecord;
    record.remove(u"HostPrivateKey"_s);
    record.remove(u"RootPrivateKey"_s);
    const std::scoped_lock lock(m_mutex);
    m_trusted.insert(record[u"HostID"_s].toString(), record);
}

bool Phone::distrust(const QString &hostId)
{
    const std::scoped_lock lock(m_mutex);
    return m_trusted.remove(hostId) > 0;
}

quint16 Phone::openPort(const ServiceTicket &ticket)
{
    const std::scoped_lock lock(m_mutex);
    // Ports that nobody came to do not pile up.
    if (m_ports.size() >= kMaxPorts)
        m_ports.clear();
    m_lastPort = m_lastPort == 0xFFFF ? kFirstPort : static_cast<quint16>(m_lastPort + 1);
    m_ports[m_lastPort] = ticket;
    return m_lastPort;
}

std::optional<ServiceTicket> Phone::takePort(quint16 port)
{
    const std::scoped_lock lock(m_mutex);
    auto taken = m_ports.extract(port);
    return taken ? std::optional(taken.mapped()) : std::nullopt;
}

void Phone::addConnection(const std::shared_ptr<Channel> &channel)
{
    const std::scoped_lock lock(m_mutex);
    std::erase_if(m_connections, [](const auto &connection) { return connection.expired(); });
    m_connections.push_back(channel);
}

void Phone::dropConnections()
{
    const std::scoped_lock lock(m_mutex);
    for (const auto &connection : m_connections) {
        if (const auto channel = connection.lock())
            channel->interrupt();
    }
}
