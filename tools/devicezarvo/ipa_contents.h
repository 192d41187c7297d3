// What the phone wants to know of an IPA beside the file itself.
#pragma once

#include "fault.h"

#include <QByteArray>
#include <QString>

#include <optional>

struct IPAContents
{
    QString bundleID;
    QByteArray sinf;     ///< the licence of the app's executable; empty when it has none
    QByteArray metadata; ///< the store's iTunesMetadata.plist; empty when there is none
};

/// Reads them from the archive. Fails with UnreadableFile when the file cannot be opened, with BadFile when
/// it is no archive or holds no app with an identifier. Memory grows with the number of entries, not with the
/// size of the file. Blocks; any thread.
std::optional<IPAContents> ReadIPAContents(const QString &file, Failure *failure = nullptr);
