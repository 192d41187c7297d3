// The installation proxy: lists apps, installs and removes them.
#include "channel.h"
#include "ipa_package.h"
#include "plist_port.h"
#include "services.h"

#include <QFile>
#include <QFileInfo>
#include <QVersionNumber>

#include <unistd.h>

#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kAppsInAMessage = 20;

const QString kIdentifier = u"CFBundleIdentifier"_s;
const QString kMetadata = u"iTunesMetadata"_s;

struct Stage
{
    int percent;
    QLatin1StringView status;
};

// As phones report them, the package being looked at before the signature.
constexpr Stage kInspecting{20, "InspectingPackage"_L1};
constexpr Stage kVerifying{40, "VerifyingApplication"_L1};
constexpr Stage kBefore[] = {{5, "CreatingStagingDirectory"_L1}, {15, "ExtractingPackage"_L1}, kInspecting};
constexpr Stage kBetween[] = {{20, "TakingInstallLock"_L1},
                              {30, "PreflightingApplication"_L1},
                              {30, "InstallingEmbeddedProfile"_L1},
                              kVerifying};
constexpr Stage kAfter[] = {{50, "CreatingContainer"_L1},
                            {60, "InstallingApplication"_L1},
                            {70, "PostflightingApplication"_L1},
                            {80, "SandboxingApplication"_L1},
                            {90, "GeneratingApplicationMap"_L1}};

constexpr int kMuteAt = 30; // percent

bool isOfType(const QVariantMap &app, const QString &type)
{
    return type.isEmpty() || type == "Any"_L1 ||
           app.value(u"ApplicationType"_s, u"User"_s).toString() == type;
}

/// The fields that were asked for. The store's metadata comes only when it is named.
QVariantMap selected(const QVariantMap &app, const QVariantMap &options)
{
    QVariantMap fields = app;
    if (!options.contains(u"ReturnAttributes"_s)) {
        fields.remove(kMetadata);
        return fields;
    }
    const QStringList wanted = options[u"ReturnAttributes"_s].toStringList();
    fields.removeIf([&](const auto &field) { return !wanted.contains(field.key()); });
    return fields;
}

class InstallationProxy
{
public:
    explicit InstallationProxy(const Connection &connection)
        : m_connection(connection)
        , m_faults(connection.config->faults)
        , m_port(*connection.channel, connection.config->format, Layer::InstallationProxy, connection.damager)
    {
    }

    void run();

private:
    bool handle(const QString &command, const QVariantMap &request);
    bool fail(const InstallError &error);
    bool browse(const QVariantMap &options);
    bool lookup(const QVariantMap &options);
    bool uninstall(const QString &id);
    bool install(const QVariantMap &request);
    bool pass(const Stage &stage);
    template <size_t N>
    bool passAll(const Stage (&stages)[N]);
    std::optional<QVariantMap> inspect(const QString &upload, const QVariantMap &options);
    std::optional<InstallError> objection(const QVariantMap &app) const;
    bool finish(QVariantMap app, const QString &upload);

    const Connection &m_connection;
    const Faults &m_faults;
    PlistPort m_port;
};

void InstallationProxy::run()
{
    while (const auto request = m_port.receive()) {
        if (!handle(request->value(u"Command"_s).toString(), *request))
            return;
    }
}

bool InstallationProxy::handle(const QString &command, const QVariantMap &request)
{
    const QVariantMap options = request.value(u"ClientOptions"_s).toMap();
    if (command == "Browse"_L1)
        return browse(options);
    if (command == "Lookup"_L1)
        return lookup(options);
    if (command == "Install"_L1 || command == "Upgrade"_L1)
        return install(request);
    if (command == "Uninstall"_L1)
        return uninstall(request.value(u"ApplicationIdentifier"_s).toString());
    return fail({u"UnknownCommand"_s, u"Unknown command: %1"_s.arg(command), 0});
}

bool InstallationProxy::fail(const InstallError &error)
{
    QVariantMap message{{u"Error"_s, error.name}};
    if (!error.description.isEmpty())
        message.insert(u"ErrorDescription"_s, error.description);
    if (error.detail != 0)
        message.insert(u"ErrorDetail"_s, error.detail);
    return m_port.send(message);
}

bool InstallationProxy::browse(const QVariantMap &options)
{
    QVariantList list;
    for (const QVariantMap &app : m_connection.phone->apps().list()) {
        if (isOfType(app, options.value(u"ApplicationType"_s).toString()))
            list.append(selected(app, options));
    }
    for (qsizetype at = 0; at < list.size(); at += kAppsInAMessage) {
        const QVariantList part = list.mid(at, kAppsInAMessage);
        if (!m_port.send({{u"Status"_s, u"BrowsingApplications"_s},
                          {u"CurrentList"_s, part},
                          {u"CurrentAmount"_s, part.size()},
                          {u"CurrentIndex"_s, at},
                          {u"Total"_s, list.size()}}))
            return false;
    }
    return m_port.send({{u"Status"_s, u"Complete"_s}});
}

bool InstallationProxy::lookup(const QVariantMap &options)
{
    const QStringList ids = options.value(u"BundleIDs"_s).toStringList();
    QVariantMap found;
    for (const QVariantMap &app : m_connection.phone->apps().list()) {
        const QString id = app[kIdentifier].toString();
        const bool wanted = !options.contains(u"BundleIDs"_s) || ids.contains(id);
        if (wanted && isOfType(app, options.value(u"ApplicationType"_s).toString()))
            found.insert(id, selected(app, options));
    }
    return m_port.send({{u"LookupResult"_s, found}, {u"Status"_s, u"Complete"_s}});
}

bool InstallationProxy::uninstall(const QString &id)
{
    if (!pass({50, "RemovingApplication"_L1}))
        return false;
    if (!m_connection.phone->apps().remove(id))
        return fail({u"APIInternalError"_s, u"No such app: %1"_s.arg(id), 0});
    return m_port.send({{u"Status"_s, u"Complete"_s}});
}

bool InstallationProxy::pass(const Stage &stage)
{
    if (m_faults.dropInstallAt && stage.percent >= *m_faults.dropInstallAt) {
        m_connection.drop();
        return false;
    }
    if (m_connection.mute("install") && stage.percent > kMuteAt) {
        m_connection.channel->swallow();
        return false;
    }
    std::this_thread::sleep_for(m_connection.config->statusInterval);
    return m_port.send({{u"Status"_s, stage.status}, {u"PercentComplete"_s, stage.percent}});
}

template <size_t N>
bool InstallationProxy::passAll(const Stage (&stages)[N])
{
    for (const Stage &stage : stages) {
        if (!pass(stage))
            return false;
    }
    return true;
}

/// The app in the upload, as Browse will list it; nothing when there is none.
std::optional<QVariantMap> InstallationProxy::inspect(const QString &upload, const QVariantMap &options)
{
    QVariantMap app;
    QByteArray metadata = options.value(kMetadata).toByteArray();
    if (m_connection.config->keepUploads) {
        // unzip is given a name of our choice: it would take a client's for a pattern.
        const QString plain = m_connection.phone->packagePath();
        if (::link(QFile::encodeName(upload).constData(), QFile::encodeName(plain).constData()) != 0)
            return std::nullopt;
        const auto package = readIpaPackage(plain);
        QFile::remove(plain);
        if (!package)
            return std::nullopt;
        app = package->info;
        if (metadata.isEmpty())
            metadata = package->metadata;
    } else {
        app = {{kIdentifier, options.value(kIdentifier)}};
    }
    if (app.value(kIdentifier).toString().isEmpty())
        return std::nullopt;
    app.insert(u"ApplicationType"_s, u"User"_s);
    app.insert(u"StaticDiskUsage"_s, QFileInfo(upload).size());
    if (!metadata.isEmpty())
        app.insert(kMetadata, metadata);
    return app;
}

/// Why this phone does not take the app.
std::optional<InstallError> InstallationProxy::objection(const QVariantMap &app) const
{
    const auto version = [](const QString &text) { return QVersionNumber::fromString(text); };
    const QString least = app.value(u"MinimumOSVersion"_s).toString();
    if (version(least) > version(m_connection.config->productVersion))
        return InstallError{u"DeviceOSVersionTooLow"_s, u"The app needs iOS %1 or later"_s.arg(least), 0};
    constexpr qint64 phoneFamily = 1;
    if (app.contains(u"UIDeviceFamily"_s) && !app[u"UIDeviceFamily"_s].toList().contains(phoneFamily))
        return InstallError{u"DeviceFamilyNotSupported"_s, u"The app does not run on this kind of device"_s,
                            0};
    const QString error = m_connection.config->installErrors.value(app[kIdentifier].toString());
    return error.isEmpty() ? m_faults.installError : InstallError{error, {}, 0};
}

bool InstallationProxy::install(const QVariantMap &request)
{
    if (!passAll(kBefore))
        return false;
    const auto upload = m_connection.phone->media().resolve(request.value(u"PackagePath"_s).toString());
    if (!upload || !QFileInfo(*upload).isFile())
        return fail({u"PackageExtractionFailed"_s, u"There is no package at that path"_s, 0});
    const auto app = inspect(*upload, request.value(u"ClientOptions"_s).toMap());
    if (!app)
        return fail({u"PackageInspectionFailed"_s, u"The package holds no app"_s, 0});
    if (!passAll(kBetween))
        return false;
    if (const auto error = objection(*app))
        return fail(*error);
    return passAll(kAfter) && finish(*app, *upload);
}

/// The package becomes the app: it leaves the uploads.
bool InstallationProxy::finish(QVariantMap app, const QString &upload)
{
    app.insert(u"Path"_s,
               u"/private/var/containers/Bundle/Application/%1.app"_s.arg(app[kIdentifier].toString()));
    if (!m_connection.phone->apps().put(app))
        return fail({u"APIInternalError"_s, u"The app could not be kept"_s, 0});
    m_connection.phone->media().removeAll(upload);
    return m_port.send({{u"Status"_s, u"Complete"_s}, {u"PercentComplete"_s, 100}});
}

} // namespace

void serveInstallationProxy(const Connection &connection)
{
    InstallationProxy(connection).run();
}
