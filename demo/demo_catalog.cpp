#include "demo_catalog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kMegabyte = 1'000'000;
constexpr int kFastDivisor = 20;

// The store numbers the versions of all apps in one row; here each app has room for a hundred.
constexpr qint64 kFirstStoreVersionID = 870'000'000;
constexpr qint64 kStoreIDsApart = 1'000'000;
constexpr qint64 kVersionsOfAnApp = 100;

DemoPhone readPhone(const QJsonObject &object)
{
    DemoPhone phone{object["id"_L1].toString(),
                    object["name"_L1].toString(),
                    object["ios"_L1].toString(),
                    object["hardware"_L1].toObject(),
                    {}};
    const QJsonObject apps = object["apps"_L1].toObject();
    for (auto app = apps.begin(); app != apps.end(); ++app)
        phone.apps.insert(app.key(), app.value().toString());
    return phone;
}

DemoApp readApp(const QJsonObject &object, const QString &owner)
{
    DemoApp app;
    app.id = object["id"_L1].toString();
    app.name = object["name"_L1].toString();
    app.storeID = object["storeID"_L1].toInteger();
    app.bytes = object["megabytes"_L1].toInteger() * kMegabyte;
    for (const auto version : object["versions"_L1].toArray())
        app.versions.append(version.toString());
    app.licenseAccount = object["licenseAccount"_L1].toString(owner);
    app.refusal = object["refusal"_L1].toString();
    app.minimumIOS = object["minimumIOS"_L1].toString();
    app.newestOnly = object["newestOnly"_L1].toBool();
    app.phoneKnowsStoreID = object["phoneKnowsStoreID"_L1].toBool(true);
    app.notPurchased = object["notPurchased"_L1].toBool();
    return app;
}

QList<DemoPurchase> purchasesOf(const DemoCatalog &catalog, const QJsonObject &old)
{
    QList<DemoPurchase> purchases;
    for (const DemoApp &app : catalog.apps) {
        if (!app.notPurchased && app.licenseAccount == catalog.email)
            purchases.append({app.storeID, app.id, app.name, app.versions.last()});
    }
    const int count = old["count"_L1].toInt();
    for (int i = 0; i < count; ++i)
        purchases.append({old["firstStoreID"_L1].toInteger() + i, old["id"_L1].toString().arg(i + 1),
                          old["name"_L1].toString().arg(i + 1), u"1.0"_s});
    std::sort(purchases.begin(), purchases.end(),
              [](const DemoPurchase &a, const DemoPurchase &b) { return a.storeID > b.storeID; });
    return purchases;
}

// What the rest of the demonstration takes for granted.
void check(const DemoCatalog &catalog)
{
    for (const DemoApp &app : catalog.apps) {
        if (app.id.isEmpty() || app.storeID < 1 || app.versions.isEmpty())
            qFatal("catalog.json: an app lacks its id, storeID or versions");
    }
    for (const DemoPhone &phone : catalog.phones) {
        for (auto installed = phone.apps.begin(); installed != phone.apps.end(); ++installed) {
            const DemoApp *app = catalog.app(installed.key());
            if (!app || !app->versions.contains(installed.value()))
                qFatal("catalog.json: no such app, or version of it: %s", qPrintable(installed.key()));
        }
    }
}

} // namespace

QString DemoApp::storeVersionID(const QString &version) const
{
    const qsizetype index = versions.indexOf(version);
    if (index < 0)
        return {};
    return QString::number(kFirstStoreVersionID + storeID % kStoreIDsApart * kVersionsOfAnApp + index);
}

QString DemoApp::versionFor(const QString &wanted) const
{
    const auto found = std::find_if(versions.begin(), versions.end(), [&](const QString &version) {
        return !newestOnly && storeVersionID(version) == wanted;
    });
    return found == versions.end() ? versions.last() : *found;
}

const DemoPhone *DemoCatalog::phone(const QString &id) const
{
    const auto found =
        std::find_if(phones.begin(), phones.end(), [&](const DemoPhone &phone) { return phone.id == id; });
    return found == phones.end() ? nullptr : &*found;
}

const DemoApp *DemoCatalog::app(const QString &id) const
{
    const auto found =
        std::find_if(apps.begin(), apps.end(), [&](const DemoApp &app) { return app.id == id; });
    return found == apps.end() ? nullptr : &*found;
}

const DemoApp *DemoCatalog::app(qint64 storeID) const
{
    const auto found =
        std::find_if(apps.begin(), apps.end(), [&](const DemoApp &app) { return app.storeID == storeID; });
    return found == apps.end() ? nullptr : &*found;
}

DemoCatalog readDemoCatalog()
{
    QFile file(u":/catalog.json"_s);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("catalog.json is not compiled in");
    QJsonParseError error;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll(), &error).object();
    if (error.error != QJsonParseError::NoError)
        qFatal("catalog.json, byte %d: %s", error.offset, qPrintable(error.errorString()));
    DemoCatalog catalog;
    catalog.email = root["account"_L1]["email"_L1].toString();
    catalog.accountName = root["account"_L1]["name"_L1].toString();
    for (const auto phone : root["phones"_L1].toArray())
        catalog.phones.append(readPhone(phone.toObject()));
    for (const auto app : root["apps"_L1].toArray())
        catalog.apps.append(readApp(app.toObject(), catalog.email));
    check(catalog);
    catalog.purchases = purchasesOf(catalog, root["oldPurchases"_L1].toObject());
    return catalog;
}

QString demoIPAName(const QString &id, const QString &version)
{
    return u"%1-%2.ipa"_s.arg(id, version);
}

int demoMilliseconds(int normal)
{
    return qgetenv("ZARVO_DEMO_SPEED") == "fast" ? normal / kFastDivisor : normal;
}
