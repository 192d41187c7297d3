// Files told apart by what they are, not by the names they happen to have.
#pragma once

#include "core/file_descriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>

/// One state of one file: two that are equal are the same file with nothing written to it in between. The
/// time of change is left out, because renaming sets it.
struct FileState
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modifiedSeconds = 0;
    long modifiedNanoseconds = 0;

    bool operator==(const FileState &) const = default;
};

/// The state of an open file; nothing when the system does not tell. Any thread, as everything below.
std::optional<FileState> StateOf(const FileDescriptor &file);
/// The state of what has this name; a symbolic link is not followed.
std::optional<FileState> StateOf(const std::filesystem::path &file);

/// What becomes of a link in the last component of a name.
enum class Links { Refuse, Follow };

/// Opens an ordinary file for reading. A closed descriptor, with errno (EINVAL where there is something
/// else), for anything else: a pipe does not block and a device is not touched.
FileDescriptor OpenOrdinaryFile(const std::filesystem::path &file, Links links = Links::Refuse);

/// A path that leads this process and its children to the very file that is held, whatever becomes of its
/// names. Nothing where the system has no such paths (macOS, or no /proc).
std::optional<std::filesystem::path> PathOfHeldFile(const FileDescriptor &file);
