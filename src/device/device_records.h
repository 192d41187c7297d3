// What the device tool tells, parsed once into plain records. Members carry the names of the tool's JSON
// keys; a number where text is expected becomes its decimal text, a missing key the empty text.
#pragma once

#include <QJsonObject>
#include <QLatin1StringView>
#include <QList>
#include <QString>

#include <optional>

/// A connected phone.
struct PhoneEntry
{
    QString id;   ///< identifies the phone everywhere
    QString name; ///< the name that its owner gave it
    QString ios;  ///< version of its system

    bool operator==(const PhoneEntry &) const = default;
};

/// An app on a phone.
struct AppRow
{
    QString id;             ///< bundle identifier
    QString name;           ///< display name
    QString version;        ///< installed version
    QString storeID;        ///< the store's numeric identifier of the app; may be empty
    QString storeVersionID; ///< the store's numeric identifier of the installed version; may be empty
    QString licenseAccount; ///< account under which the app was first installed; may be empty

    bool operator==(const AppRow &) const = default;
};

/// The keys of the readings that the program itself asks for; the device tool writes them.
inline constexpr QLatin1StringView kSerialNumberKey("serialNumber");
inline constexpr QLatin1StringView kPhoneNumberKey("phoneNumber");

/// One reading of a phone, ready to be shown.
struct DetailLine
{
    QString label;
    QString value;
    QString key = {}; ///< which reading it is, whatever its label says; empty for those that nobody asks for

    bool operator==(const DetailLine &) const = default;
};

/// One answer of the device tool. A list is empty when the answer has no such key or it is no array; elements
/// that are no objects are left out.
struct DeviceReply
{
    std::optional<QString> error; ///< present when the answer has the key, whatever its value
    bool success = false;
    QList<PhoneEntry> devices;
    QList<AppRow> apps;
    QList<DetailLine> details;
};

/// Any thread.
DeviceReply ParseDeviceReply(const QJsonObject &object);
