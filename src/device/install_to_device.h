// The rules of installing an IPA on a phone. Plain functions, any thread.
#pragma once

#include "core/error.h"
#include "core/tool_runner.h"
#include "device/device_records.h"
#include "ipa/ipa_validation.h"

#include <QList>
#include <QString>

/// True when the device tool's run says that the system took the app: exit status 0 and `success`. Fails with
/// the tool's own reason or, lacking one, with a sentence of ours.
bool JudgeInstallRun(const ToolResult &result, Error *error = nullptr);

/// True when one of the apps read from the phone is the IPA's, in exactly its version.
bool IsInstalled(const QList<AppRow> &apps, const IPAInfo &info);

/// True for an existing regular file that is called .ipa, in capitals or not; what is in it is not looked at.
bool IsIPAFile(const QString &path);

/// What the user is asked to confirm: the file's name, the phone as the list shows it, and what may happen.
QString InstallQuestion(const QString &file, const QString &phoneTitle);
