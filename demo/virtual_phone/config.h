// What the phones are like and what goes wrong with them.
#pragma once

#include "damage.h"
#include "plist_codec.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <chrono>
#include <optional>

/// The refusal of an installation, in the phone's own words.
struct InstallError
{
    QString name;
    QString description; ///< may be empty
    qint64 detail = 0;   ///< 0: none
};

struct Faults
{
    bool locked = false;
    bool untrusted = false;
    bool refused = false;
    bool revoked = false;
    bool wrongKeys = false;
    bool full = false;
    bool unplug = false;
    QString mute; ///< empty: nothing is
    std::optional<qint64> dropUploadAfter;
    std::optional<int> dropInstallAt;
    std::optional<InstallError> installError;
    std::optional<DamageConfig> damage;
};

struct PhoneConfig
{
    QString udid;
    QString name;
    QString productType;
    QString productVersion;
    QString buildVersion;
    QString serial;
    QString connection;  ///< "USB" or "Network"
    QVariantMap values;  ///< by domain, then key; "" is the general one; an invalid value: the phone has none
    QVariantMap battery; ///< as the phone's registry names it; empty: no reading
    QList<QVariantMap> apps; ///< fields as Browse gives them
    QString appsDirectory;   ///< absolute; empty: none
    qint64 capacity = 0;     ///< bytes
    qint64 used = 0;         ///< bytes that are neither uploads nor installed since
    qint64 uploadRate = 0;   ///< bytes in a second; 0: as fast as it goes
    bool paired = true;
    bool tls = true;
    bool keepUploads = true;
    PlistFormat format = PlistFormat::Xml;
    std::chrono::milliseconds statusInterval{0};
    std::chrono::milliseconds idleLimit{0};
    QMap<QString, QString> installErrors; ///< by bundle identifier
    Faults faults;
    QJsonObject source; ///< what this was read from: tells whether anything has changed
};

struct Config
{
    bool mute = false;
    QList<PhoneConfig> phones;
};

/// Reads the file that the comment in config.cpp describes. Nothing, and one English line in `error`, when it
/// cannot be read, when a key is unknown (a misspelt fault would make a test pass for nothing) or a value is
/// of a wrong type.
std::optional<Config> readConfig(const QString &path, QString *error);
