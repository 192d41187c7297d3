// Downloading one app: the rules and the worker. Any thread.
#pragma once

#include "core/job.h"
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

/// Downloads the app of `row` into the folder `directory` and returns the path of the saved IPA: looks its
/// store identifier up where `numericID` is empty, checks what came, insists on the installed version when
/// `exact`, and publishes it under the name of the app and of the version that came. Whatever happens,
/// nothing but that file is left in the folder. A cancelled job fails without an error. Blocks.
std::optional<QString> downloadWorker(Job &job, const AppRow &row, const QString &numericID,
                                      const QString &directory, bool exact, Error *error = nullptr);
