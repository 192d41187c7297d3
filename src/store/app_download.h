// The rules of downloading one app. Plain functions, any thread.
#pragma once

#include "device/device_records.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// The store tool's arguments for downloading `row` into the file `output`: by `identifier` when that is a
/// positive number, else by bundle identifier; when `exact`, the installed version where the phone told its
/// identifier.
QStringList DownloadArguments(const AppRow &row, const QString &identifier, const QString &output,
                              bool exact);

/// True when an IPA of `version` may be kept: always, unless exactly the installed version was asked for and
/// the phone told the store's identifier of it.
bool IsWantedVersion(const AppRow &row, const QString &version, bool exact);

/// The store identifier that the user typed, trimmed: empty when the field is, none when it is no positive
/// number.
std::optional<QString> TypedStoreID(const QString &text);

/// The size in bytes of all files below `folder`; what cannot be read counts as nothing. Follows no links.
qint64 FolderSize(const QString &folder);

/// The progress line: `bytes` in decimal units, and whole seconds.
QString ProgressText(qint64 bytes, std::chrono::seconds elapsed);
