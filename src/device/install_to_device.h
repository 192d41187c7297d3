// Installing an IPA on a phone: the rules and the worker. Any thread.
#pragma once

#include "core/error.h"
#include "core/job.h"
#include "core/tool_runner.h"
#include "device/device_records.h"
#include "ipa/ipa_validation.h"

#include <QList>
#include <QString>

#include <optional>

/// True when the device tool's run says that the system took the app: exit status 0 and `success`. Fails with
/// the tool's own reason or, lacking one, with a sentence of ours.
bool JudgeInstallRun(const ToolResult &result, Error *error = nullptr);

/// True when one of the apps read from the phone is the IPA's, in exactly its version.
bool IsInstalled(const QList<AppRow> &apps, const IPAInfo &info);

/// True for an existing regular file that is called .ipa, in capitals or not; what is in it is not looked at.
bool IsIPAFile(const QString &path);

/// Why a path that is no IPA file is not taken.
QString RefusalOf(const QString &path);

/// What the user is asked to confirm: the file's name, the phone as the list shows it, and what may happen.
QString InstallQuestion(const QString &file, const QString &phoneTitle);

/// Checks the IPA `file`, installs it on `phone` and reads the phone's apps, which it returns in the tool's
/// order: only they prove that the app is there in the file's version. A cancelled job fails without an
/// error where it had not begun to install. Blocks.
std::optional<QList<AppRow>> installWorker(Job &job, const QString &file, const QString &phone,
                                           Error *error = nullptr);
