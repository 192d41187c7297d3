// The list of installed apps: its order, its filter and the line that describes the chosen one. Plain
// functions, any thread.
#pragma once

#include "device/device_records.h"

#include <optional>

/// Sorts by name as the user's language does, without regard to case; equal names keep their order.
void SortByName(QList<AppRow> &apps);
void SortByName(QList<PhoneEntry> &phones);

/// A text prepared for searching: without the differences of case, and with accents composed.
QString SearchKey(const QString &text);

/// An app's searchable texts, prepared once for all keystrokes.
struct AppSearchKeys
{
    QString name;
    QString id;
};

QList<AppSearchKeys> MakeSearchKeys(const QList<AppRow> &apps);

/// The rows of `apps` (whose prepared texts are `keys`) that hold `text` in their name or identifier, in
/// their order; all when `text` is empty.
QList<AppRow> FilterApps(const QList<AppRow> &apps, const QList<AppSearchKeys> &keys, const QString &text);

/// The first row with this identifier, or none.
std::optional<AppRow> FindApp(const QList<AppRow> &apps, const QString &id);

/// What stands in the table while it shows no row: `isRead` tells whether the list of a phone's apps is held,
/// `hasApps` whether there are any in it, `trouble` why no phone can be listed. May be empty.
QString EmptyTableText(bool isRead, bool hasApps, const QString &trouble);

/// The description of the chosen app, or the request to choose one.
QString OwnerText(const std::optional<AppRow> &app);
