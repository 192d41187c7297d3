// Is this file an IPA, and of which app?
#pragma once

#include "core/error.h"

#include <QString>

#include <filesystem>
#include <optional>

/// What a sound IPA says of itself.
struct IPAInfo
{
    QString id;      ///< bundle identifier (CFBundleIdentifier), may be empty
    QString version; ///< CFBundleShortVersionString, or "не указана" when there is no such text
};

/// Checks structure and identity of the IPA `file` (any bytes are allowed in its name) with /usr/bin/unzip:
/// the integrity of every entry, exactly one app with a usable Info.plist, an executable that is there, and,
/// when given, the `expectedID`. Reads the archive without unpacking it; all answers are about the same file,
/// also when another gets its name meanwhile. Blocks, at most 300 s and three times 60 s; any thread. Fails
/// with the reason, or with the runner's error when unzip could not run or did not end in time; also when it
/// listed more than 16 MB of names, or there is no room for the whole listing. A missing file counts as
/// damaged; what the system is to blame for (a file that may not or cannot be read, unzip killed, no memory,
/// no room) does not and has a sentence of its own, which reading a damaged file once more, for at most 60 s,
/// tells. unzip runs in the locale C.UTF-8, on macOS in en_US.UTF-8: entries with names beyond ASCII are
/// found only where that is installed. Memory grows with the number of entries, not with the size of the
/// file.
std::optional<IPAInfo> ZarvoValidateIPA(const std::filesystem::path &file,
                                        const std::optional<QString> &expectedID = std::nullopt,
                                        Error *error = nullptr);
