// Writes the configuration of the demonstration's virtual phones, from the catalogue that its store has too.
#include "demo_catalog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QVersionNumber>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

/// What the store leaves on a phone beside an app.
QJsonObject storeMetadata(const DemoApp &app, const QString &version)
{
    QJsonObject metadata;
    if (app.phoneKnowsStoreID) {
        metadata["itemId"_L1] = app.storeID;
        metadata["softwareVersionExternalIdentifier"_L1] = app.storeVersionID(version).toLongLong();
    }
    if (!app.licenseAccount.isEmpty()) {
        const QJsonObject account{{"AppleID"_L1, app.licenseAccount}};
        metadata["com.apple.iTunesStore.downloadInfo"_L1] = QJsonObject{{"accountInfo"_L1, account}};
    }
    return metadata;
}

QJsonObject phoneConfiguration(const DemoCatalog &catalog, const DemoPhone &phone)
{
    QJsonArray apps;
    for (auto installed = phone.apps.begin(); installed != phone.apps.end(); ++installed) {
        const DemoApp *app = catalog.app(installed.key());
        apps.append(QJsonObject{{"CFBundleIdentifier"_L1, app->id},
                                {"CFBundleDisplayName"_L1, app->name},
                                {"CFBundleShortVersionString"_L1, installed.value()},
                                {"ApplicationType"_L1, u"User"_s},
                                {"iTunesMetadata"_L1, storeMetadata(*app, installed.value())}});
    }
    QJsonObject refusals;
    for (const DemoApp &app : catalog.apps) {
        if (QVersionNumber::fromString(phone.ios) < QVersionNumber::fromString(app.minimumIOS))
            refusals[app.id] = u"DeviceOSVersionTooLow"_s;
    }
    QJsonObject configuration = phone.hardware;
    configuration["udid"_L1] = phone.id;
    configuration["name"_L1] = phone.name;
    configuration["productVersion"_L1] = phone.ios;
    configuration["apps"_L1] = apps;
    configuration["installErrors"_L1] = refusals;
    return configuration;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fputs("make_phones FILE.json\n", stderr);
        return 1;
    }
    const DemoCatalog catalog = readDemoCatalog();
    QJsonArray phones;
    for (const DemoPhone &phone : catalog.phones)
        phones.append(phoneConfiguration(catalog, phone));
    QFile file(QFile::decodeName(argv[1]));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(QJsonObject{{"phones"_L1, phones}}).toJson()) < 0) {
        std::fprintf(stderr, "make_phones: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
