// clang-format off
// The configuration of the virtual phone, a JSON file:
//
// {
//   "mute": false,                   the service of the cable answers nobody, about any phone
//   "phones": [{
//     "udid": "00008DE0-000000000000001A",
//     "name": "iPhone", "productType": "iPhone14,5", "productVersion": "17.5.1", "buildVersion": "21F90",
//     "serial": "…",
//     "connection": "USB",           or "Network"
//     "values": {"": {"TimeZone": "Europe/Moscow"}, "com.apple.disk_usage": {…}},
//                                    lockdown's values by domain, over the usual ones; null: the phone has no
//                                    such value
//     "battery": {"CurrentCapacity": 82, "IsCharging": true, "CycleCount": 312, "DesignCapacity": 3227,
//                 "NominalChargeCapacity": 2937, "Temperature": 2910, "entry": "AppleSmartBattery"},
//                                    as in the I/O registry; "entry": its name or class there; absent: no
//                                    reading
//     "apps": [{"CFBundleIdentifier": "…", "CFBundleDisplayName": "…", "CFBundleShortVersionString": "…",
//               "ApplicationType": "User", "iTunesMetadata": {…}}],
//                                    any fields; iTunesMetadata: an object, sent as a binary property list,
//                                    or a text "xml:…" or "base64:…", sent as these bytes
//     "appsDirectory": "DIR",        what is installed and removed persists there; relative to this file
//     "capacity": 128000000000, "used": 60000000000,        bytes
//     "paired": true,                this computer is trusted from the start; false: the first Pair makes it so
//     "tls": true,                   sessions and services are encrypted
//     "uploads": "keep",             or "discard": only their sizes are kept, and Install believes its options
//     "format": "xml",               or "binary": of the services' messages
//     "uploadRate": 0,               bytes in a second; 0: as fast as it goes
//     "statusInterval": 0,           ms between the messages of an installation
//     "idleLimit": 10000,            ms after which lockdown drops a silent client
//     "installErrors": {"com.example.app": "DeviceOSVersionTooLow"},
//     "faults": {
//       "locked": true,              a code is asked for: no session, no pairing
//       "untrusted": true,           the question of trust is still on its screen
//       "refused": true,             the answer was no
//       "revoked": true,             trust was given once, and taken back
//       "wrongKeys": true,           the session starts, then the certificate of the computer is turned down
//       "mute": "usbmuxd|lockdownd|session|values|afc|installation_proxy|install|diagnostics",
//                                    takes connections there and never answers; "values": when asked for all
//                                    of them; "install": in the middle of one
//       "dropUploadAfter": 1000000,  bytes, counted over a connection
//       "dropInstallAt": 40,         percent
//       "unplug": true,              what drops, drops the whole phone, until the configuration is read again
//       "full": true,
//       "installError": "ApplicationVerificationFailed",
//       "installErrorDetail": "0xe8008015", "installErrorDescription": "…",
//       "damage": {"layer": "mux|lockdown|tls|service|afc|instproxy|diagnostics", "seed": 1,
//                  "kind": "flip|cut|type|length", "every": 3, "hold": false}
//     }
//   }]
// }
// clang-format on
#include "config.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kDefaultCapacity = 128'000'000'000;
constexpr qint64 kDefaultUsed = 64'000'000'000;
constexpr qint64 kDefaultIdleLimit = 10'000; // as a phone does
constexpr auto kMutePlaces = {"usbmuxd"_L1, "lockdownd"_L1,          "session"_L1, "values"_L1,
                              "afc"_L1,     "installation_proxy"_L1, "install"_L1, "diagnostics"_L1};

/// Takes the members of an object one by one, and knows which were never asked for.
class Reader
{
public:
    Reader(QJsonObject object, QString place, QString *error)
        : m_object(std::move(object))
        , m_place(std::move(place))
        , m_error(error)
    {
    }

    QJsonValue take(QLatin1StringView key, QJsonValue::Type type)
    {
        const QJsonValue value = m_object.take(key);
        if (!value.isUndefined() && value.type() != type)
            fail(key, u"has a wrong type"_s);
        return value.type() == type ? value : QJsonValue(QJsonValue::Undefined);
    }

    QString text(QLatin1StringView key, const QString &otherwise = {})
    {
        return take(key, QJsonValue::String).toString(otherwise);
    }

    qint64 number(QLatin1StringView key, qint64 otherwise)
    {
        return take(key, QJsonValue::Double).toInteger(otherwise);
    }

    bool flag(QLatin1StringView key, bool otherwise = false)
    {
        return take(key, QJsonValue::Bool).toBool(otherwise);
    }

    QJsonObject object(QLatin1StringView key) { return take(key, QJsonValue::Object).toObject(); }

    QJsonArray array(QLatin1StringView key) { return take(key, QJsonValue::Array).toArray(); }

    bool has(QLatin1StringView key) const { return m_object.contains(key); }

    template <typename T>
    T choice(QLatin1StringView key, std::initializer_list<std::pair<QLatin1StringView, T>> choices,
             T otherwise)
    {
        if (!has(key))
            return otherwise;
        const QString word = text(key);
        for (const auto &[name, value] : choices) {
            if (word == name)
                return value;
        }
        fail(key, u"is none of the known words"_s);
        return otherwise;
    }

    void fail(const QString &key, const QString &what)
    {
        if (m_error->isEmpty())
            *m_error = u"%1: \"%2\" %3"_s.arg(m_place, key, what);
    }

    void finish()
    {
        if (!m_object.isEmpty())
            fail(m_object.begin().key(), u"is unknown"_s);
    }

    const QString &place() const { return m_place; }

private:
    QJsonObject m_object;
    QString m_place;
    QString *m_error;
};

DamageConfig readDamage(Reader reader)
{
    DamageConfig damage;
    damage.layer = reader.choice<Layer>("layer"_L1,
                                        {{"mux"_L1, Layer::Mux},
                                         {"lockdown"_L1, Layer::Lockdown},
                                         {"tls"_L1, Layer::Tls},
                                         {"service"_L1, Layer::Service},
                                         {"afc"_L1, Layer::Afc},
                                         {"instproxy"_L1, Layer::InstallationProxy},
                                         {"diagnostics"_L1, Layer::Diagnostics}},
                                        damage.layer);
    damage.kind = reader.choice<DamageKind>("kind"_L1,
                                            {{"flip"_L1, DamageKind::Flip},
                                             {"cut"_L1, DamageKind::Cut},
                                             {"type"_L1, DamageKind::Type},
                                             {"length"_L1, DamageKind::Length}},
                                            damage.kind);
    damage.seed = static_cast<quint64>(reader.number("seed"_L1, 0));
    damage.every = static_cast<int>(reader.number("every"_L1, damage.every));
    damage.hold = reader.flag("hold"_L1);
    reader.finish();
    return damage;
}

InstallError readInstallError(Reader &reader)
{
    InstallError error{reader.text("installError"_L1), reader.text("installErrorDescription"_L1), 0};
    const QString detail = reader.text("installErrorDetail"_L1);
    bool ok = true;
    // A phone gives the code as a signed number of 32 bits.
    error.detail = detail.isEmpty() ? 0 : static_cast<qint32>(detail.toUInt(&ok, 0));
    if (!ok)
        reader.fail(u"installErrorDetail"_s, u"is no number"_s);
    if (error.description.isEmpty() && !detail.isEmpty())
        error.description = u"Failed to verify the package: %1"_s.arg(detail);
    return error;
}

Faults readFaults(Reader reader, QString *error)
{
    Faults faults;
    faults.locked = reader.flag("locked"_L1);
    faults.untrusted = reader.flag("untrusted"_L1);
    faults.refused = reader.flag("refused"_L1);
    faults.revoked = reader.flag("revoked"_L1);
    faults.wrongKeys = reader.flag("wrongKeys"_L1);
    faults.full = reader.flag("full"_L1);
    faults.unplug = reader.flag("unplug"_L1);
    faults.mute = reader.text("mute"_L1);
    if (!faults.mute.isEmpty() &&
        std::find(kMutePlaces.begin(), kMutePlaces.end(), faults.mute) == kMutePlaces.end())
        reader.fail(u"mute"_s, u"is none of the known words"_s);
    if (reader.has("dropUploadAfter"_L1))
        faults.dropUploadAfter = reader.number("dropUploadAfter"_L1, 0);
    if (reader.has("dropInstallAt"_L1))
        faults.dropInstallAt = static_cast<int>(reader.number("dropInstallAt"_L1, 0));
    if (reader.has("installError"_L1))
        faults.installError = readInstallError(reader);
    if (reader.has("damage"_L1))
        faults.damage = readDamage(Reader(reader.object("damage"_L1), reader.place() + u", damage"_s, error));
    reader.finish();
    return faults;
}

QVariantMap readApp(const QJsonObject &object)
{
    QVariantMap app = object.toVariantMap();
    const auto metadata = app.find(u"iTunesMetadata"_s);
    if (metadata == app.end())
        return app;
    const QString text = metadata->toString();
    if (text.startsWith("xml:"_L1))
        *metadata = text.mid(4).toUtf8();
    else if (text.startsWith("base64:"_L1))
        *metadata = QByteArray::fromBase64(text.mid(7).toLatin1());
    else
        *metadata = encodePlist(*metadata, PlistFormat::Binary);
    return app;
}

void readApps(Reader &reader, PhoneConfig &phone)
{
    for (const QJsonValue app : reader.array("apps"_L1)) {
        if (app["CFBundleIdentifier"_L1].toString().isEmpty())
            reader.fail(u"apps"_s, u"holds an app without CFBundleIdentifier"_s);
        phone.apps.append(readApp(app.toObject()));
    }
    const QJsonObject errors = reader.object("installErrors"_L1);
    for (auto error = errors.begin(); error != errors.end(); ++error)
        phone.installErrors.insert(error.key(), error.value().toString());
}

PhoneConfig readPhone(const QJsonObject &source, const QDir &folder, QString *error)
{
    PhoneConfig phone;
    phone.source = source;
    phone.udid = source["udid"_L1].toString();
    Reader reader(source, u"phone \"%1\""_s.arg(phone.udid), error);
    if (reader.text("udid"_L1).isEmpty() || phone.udid.contains(u'/'))
        reader.fail(u"udid"_s, u"is missing or no name for a folder"_s);
    phone.name = reader.text("name"_L1, u"iPhone"_s);
    phone.productType = reader.text("productType"_L1, u"iPhone14,5"_s);
    phone.productVersion = reader.text("productVersion"_L1, u"17.5.1"_s);
    phone.buildVersion = reader.text("buildVersion"_L1, u"21F90"_s);
    phone.serial = reader.text("serial"_L1, u"VIRTUAL00001"_s);
    phone.connection = reader.choice<QString>("connection"_L1,
                                              {{"USB"_L1, u"USB"_s}, {"Network"_L1, u"Network"_s}}, u"USB"_s);
    phone.values = reader.object("values"_L1).toVariantMap();
    phone.battery = reader.object("battery"_L1).toVariantMap();
    readApps(reader, phone);
    if (const QString apps = reader.text("appsDirectory"_L1); !apps.isEmpty())
        phone.appsDirectory = folder.absoluteFilePath(apps);
    phone.capacity = reader.number("capacity"_L1, kDefaultCapacity);
    phone.used = reader.number("used"_L1, std::min(kDefaultUsed, phone.capacity / 2));
    phone.uploadRate = reader.number("uploadRate"_L1, 0);
    phone.paired = reader.flag("paired"_L1, true);
    phone.tls = reader.flag("tls"_L1, true);
    phone.keepUploads = reader.choice<bool>("uploads"_L1, {{"keep"_L1, true}, {"discard"_L1, false}}, true);
    phone.format = reader.choice<PlistFormat>(
        "format"_L1, {{"xml"_L1, PlistFormat::Xml}, {"binary"_L1, PlistFormat::Binary}}, PlistFormat::Xml);
    phone.statusInterval = std::chrono::milliseconds(reader.number("statusInterval"_L1, 0));
    phone.idleLimit = std::chrono::milliseconds(reader.number("idleLimit"_L1, kDefaultIdleLimit));
    phone.faults =
        readFaults(Reader(reader.object("faults"_L1), reader.place() + u", faults"_s, error), error);
    reader.finish();
    return phone;
}

} // namespace

std::optional<Config> readConfig(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = u"%1: %2"_s.arg(path, file.errorString());
        return std::nullopt;
    }
    QJsonParseError fault;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &fault);
    if (!document.isObject()) {
        *error = u"%1: no JSON object (byte %2: %3)"_s.arg(path).arg(fault.offset).arg(fault.errorString());
        return std::nullopt;
    }
    QString found;
    Config config;
    Reader reader(document.object(), path, &found);
    config.mute = reader.flag("mute"_L1);
    for (const QJsonValue phone : reader.array("phones"_L1))
        config.phones.append(readPhone(phone.toObject(), QFileInfo(path).absoluteDir(), &found));
    reader.finish();
    if (!found.isEmpty()) {
        *error = found;
        return std::nullopt;
    }
    return config;
}
