#include "ipa/held_file.h"

#include <sys/stat.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <cerrno>
#include <string>

namespace {

FileState stateOf(const struct stat &status)
{
#ifdef __APPLE__
    const timespec modified = status.st_mtimespec;
#else
    const timespec modified = status.st_mtim;
#endif
    return {status.st_dev, status.st_ino, status.st_size, modified.tv_sec, modified.tv_nsec};
}

bool isOrdinary(const FileDescriptor &file)
{
    struct stat status = {};
    return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

std::optional<FileState> StateOf(const FileDescriptor &file)
{
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        return std::nullopt;
    return stateOf(status);
}

std::optional<FileState> StateOf(const std::filesystem::path &file)
{
    struct stat status = {};
    if (::lstat(file.c_str(), &status) != 0)
        return std::nullopt;
    return stateOf(status);
}

FileDescriptor OpenOrdinaryFile(const std::filesystem::path &file, Links links)
{
    // Asked by name first, because opening alone can make a device act, and again once nothing can be swapped
    // in.
    const bool follows = links == Links::Follow;
    struct stat status = {};
    if ((follows ? ::stat(file.c_str(), &status) : ::lstat(file.c_str(), &status)) != 0)
        return {};
    errno = EINVAL;
    if (!S_ISREG(status.st_mode))
        return {};
    const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    FileDescriptor opened(::open(file.c_str(), follows ? flags : flags | O_NOFOLLOW));
    if (opened.isOpen() && !isOrdinary(opened)) {
        errno = EINVAL;
        return {};
    }
    return opened;
}

std::optional<std::filesystem::path> PathOfHeldFile([[maybe_unused]] const FileDescriptor &file)
{
#ifdef __linux__
    // A process that hides its memory hides its descriptors from its children too.
    if (::prctl(PR_GET_DUMPABLE) != 1)
        return std::nullopt;
    const std::filesystem::path path =
        "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file.get());
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || StateOf(file) != stateOf(status))
        return std::nullopt;
    return path;
#else
    return std::nullopt;
#endif
}
