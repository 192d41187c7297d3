// The names of uploads in the phone's staging folder. Plain functions, any thread.
#pragma once

#include <QByteArray>

/// The name, within the staging folder, of an upload that begins at `seconds` (since 1970, this computer's
/// clock) in the process `process`.
QByteArray StagingName(qint64 seconds, qint64 process);

/// True for the name of an upload that began so long ago that nobody can be at work on it: the program was
/// killed, or the cable pulled.
bool IsAbandonedUpload(const QByteArray &name, qint64 seconds);
