// One phone: what it is like, what it holds, whom it trusts.
#pragma once

#include "config.h"
#include "installed_apps.h"
#include "media.h"
#include "tls_identity.h"

#include <QMap>
#include <QString>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class Channel;

/// A service that a session was promised at a port.
struct ServiceTicket
{
    QString service;
    QString hostId; ///< whose certificates encrypt it
};

/// Any thread.
class Phone
{
public:
    /// Keeps its files in `folder`. `host`: the computer that a paired phone trusts from the start.
    Phone(const PhoneConfig &config, const QString &folder, const HostIdentity &host);

    /// What it is like at the moment; a later configure() does not change what was handed out.
    std::shared_ptr<const PhoneConfig> config() const;
    std::shared_ptr<Damager> damager() const; ///< null when nothing is damaged
    void configure(const PhoneConfig &config);

    const QString &udid() const { return m_udid; }
    const Key &key() const { return m_key; }
    InstalledApps &apps() { return m_apps; }
    Media &media() { return m_media; }
    /// Bytes that can still be written.
    qint64 freeBytes() const;
    /// A new path, on the same file system as the uploads, for a package that is being installed.
    QString packagePath();

    /// The pair record that exists from the start.
    const QVariantMap &firstPairRecord() const { return m_firstRecord; }
    /// The pair record, private keys missing, of a computer that it trusts.
    std::optional<QVariantMap> trusted(const QString &hostId) const;
    void trust(const QVariantMap &pairRecord);
    bool distrust(const QString &hostId);

    /// A port on which the service waits for one connection.
    quint16 openPort(const ServiceTicket &ticket);
    std::optional<ServiceTicket> takePort(quint16 port);

    void addConnection(const std::shared_ptr<Channel> &channel);
    void dropConnections();

private:
    const QString m_udid;
    const QString m_folder;
    const Key m_key;
    const QVariantMap m_firstRecord;
    InstalledApps m_apps;
    Media m_media;
    mutable std::mutex m_mutex; // for all below
    std::shared_ptr<const PhoneConfig> m_config;
    std::shared_ptr<Damager> m_damager;
    QMap<QString, QVariantMap> m_trusted;
    std::map<quint16, ServiceTicket> m_ports;
    quint16 m_lastPort;
    int m_packages = 0;
    std::vector<std::weak_ptr<Channel>> m_connections;
};
