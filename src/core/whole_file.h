// Small files that are written whole or not at all, and what it takes to have a file's contents on the disk.
#pragma once

#include "core/error.h"
#include "core/file_descriptor.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <filesystem>

/// Gives `path` a new file with these contents and mode 0600 in one step: whenever the disk is full, or the
/// program or the machine stops, the name has the old contents or the new ones, whole. The draft is made in a
/// private folder beside it. A symbolic link is replaced, not followed. Fails with the system's reason; the
/// old file is as it was then. Blocks; any thread.
bool WriteWholeFile(const QString &path, const QByteArray &contents, Error *error = nullptr);

/// Writes all these bytes to an open file. Returns 0 or an errno value, as all below. Blocks; any thread.
int WriteAll(const FileDescriptor &file, const char *bytes, std::size_t count);

/// Waits until the contents of an open file are on the disk; a file system that cannot promise it is not a
/// failure. On macOS by F_FULLFSYNC, because fsync alone leaves them in the disk's own memory; by fsync where
/// a volume does not know it.
int SyncFile(const FileDescriptor &file);
/// The same for the entries of the folder that `file` is in.
int SyncFolderOf(const std::filesystem::path &file);
