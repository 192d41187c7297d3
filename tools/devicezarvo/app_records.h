// The apps of a phone, from its installation service's words to the tool's. Plain functions, any thread.
#pragma once

#include <QJsonArray>
#include <QJsonObject>

#include <plist/plist.h>

#include <optional>

/// The record of one app: `id`, `name` (display name, else bundle name, else the last part of the
/// identifier), `version` (the short one, else the bundle's) and, where the store's metadata tell them,
/// `storeID`, `storeVersionID` and `licenseAccount`. Nothing for what has no identifier.
std::optional<QJsonObject> AppRecord(plist_t app);

/// The records of one page of the list (`CurrentList`), added to `apps`.
void AppendAppRecords(plist_t page, QJsonArray &apps);
