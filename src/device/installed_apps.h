// The list of installed apps: reading it, its order, its filter and the line that describes the chosen one.
// Any thread.
#pragma once

#include "core/job.h"
#include "device/device_records.h"

#include <optional>
#include <vector>

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

/// Apps with their searchable texts, one for each row.
struct SearchableApps
{
    QList<AppRow> rows;
    QList<AppSearchKeys> keys;
};

SearchableApps MakeSearchable(const QList<AppRow> &rows);

/// The positions of those that hold `text` in their name or identifier, in their order; all when it is empty.
std::vector<qsizetype> MatchingApps(const SearchableApps &apps, const QString &text);

/// The first row with this identifier, or none.
std::optional<AppRow> FindApp(const QList<AppRow> &apps, const QString &id);

/// What stands in the table while it shows no row: `isRead` tells whether the list of a phone's apps is held,
/// `hasApps` whether there are any in it, `trouble` why no phone can be listed. May be empty.
QString EmptyTableText(bool isRead, bool hasApps, const QString &trouble);

/// The description of the chosen app, or the request to choose one.
QString OwnerText(const std::optional<AppRow> &app);

/// What a phone tells of its apps, and of itself with them.
struct InstalledApps
{
    SearchableApps apps; ///< sorted by name
    QList<DetailLine> details;
};

/// Reads the apps and the details of `phone`; details that cannot be had are no failure. Blocks.
std::optional<InstalledApps> readAppsWorker(Job &job, const QString &phone, Error *error = nullptr);
