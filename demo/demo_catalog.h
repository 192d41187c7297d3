// The made-up world of the demonstration: phones, apps, and an account that bought them.
#pragma once

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

/// An app as the store has it and as phones know it.
struct DemoApp
{
    QString id; ///< bundle identifier
    QString name;
    qint64 storeID = 0;
    qint64 bytes = 0;              ///< size of its IPA, about
    QStringList versions;          ///< oldest first; the store offers the last one
    QString licenseAccount;        ///< who bought it; may be empty
    QString refusal;               ///< what the store says instead of handing it out; empty: it hands it out
    QString minimumIOS;            ///< empty: any
    bool newestOnly = false;       ///< the store gives the newest version, whichever is asked for
    bool phoneKnowsStoreID = true; ///< phones tell its number in the store
    bool notPurchased = false;     ///< missing in the list of purchases

    /// The store's number of one of its versions; empty when it is none of them.
    QString storeVersionID(const QString &version) const;
    /// The version that the store hands out when asked for `storeVersionID` (empty: for none).
    QString versionFor(const QString &storeVersionID) const;
};

struct DemoPhone
{
    QString id;
    QString name;
    QString ios;
    QJsonObject hardware;        ///< the rest, as the virtual phone's configuration has it
    QMap<QString, QString> apps; ///< bundle identifier, version
};

/// One line of the account's history.
struct DemoPurchase
{
    qint64 storeID = 0;
    QString id;
    QString name;
    QString version;
};

struct DemoCatalog
{
    QString email;
    QString accountName;
    QList<DemoPhone> phones;
    QList<DemoApp> apps;
    QList<DemoPurchase> purchases; ///< of the account, newest first

    const DemoPhone *phone(const QString &id) const;
    const DemoApp *app(const QString &id) const;
    const DemoApp *app(qint64 storeID) const;
};

/// Reads the catalogue that is compiled into the program; ends the program when it is broken.
DemoCatalog readDemoCatalog();

/// The name of the file, in the folder of IPAs, that holds this version of an app.
QString demoIPAName(const QString &id, const QString &version);

/// A time of the demonstration as it is to be spent: shortened when ZARVO_DEMO_SPEED is "fast". Milliseconds.
int demoMilliseconds(int normal);
