#include "ipa/file_moving.h"

#include "core/private_folder.h"
#include "core/whole_file.h"

#include <QFile>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

constexpr size_t kCopyBlock = size_t{1} << 20;
constexpr int kNamesTried = 100;

#ifdef __APPLE__
constexpr unsigned kExclusive = RENAME_EXCL;
constexpr unsigned kExchange = RENAME_SWAP;
#else
constexpr unsigned kExclusive = RENAME_NOREPLACE;
constexpr unsigned kExchange = RENAME_EXCHANGE;
#endif

// 0 or an errno value, as all functions here.
int renameWith(unsigned flags, const fs::path &source, const fs::path &destination)
{
#ifdef __APPLE__
    const int result = ::renamex_np(source.c_str(), destination.c_str(), flags);
#else
    const int result = ::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), flags);
#endif
    return result == 0 ? 0 : errno;
}

bool isUnsupported(int number)
{
    constexpr std::array kUnsupported{EINVAL, ENOSYS, ENOTSUP, EOPNOTSUPP}; // the last two are one on Linux
    return std::find(kUnsupported.begin(), kUnsupported.end(), number) != kUnsupported.end();
}

// File systems without hard links answer EPERM; some count the links and answer EMLINK.
bool isLinkUnsupported(int number)
{
    return isUnsupported(number) || number == EPERM || number == EMLINK;
}

int linkThenUnlink(const fs::path &source, const fs::path &destination)
{
    // Without AT_SYMLINK_FOLLOW: a link would be moved as such, like a rename does.
    if (::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), 0) != 0)
        return errno;
    ::unlink(source.c_str());
    return 0;
}

// By device and number alone: some file systems tell other times for a name than for an open file.
bool isSameFile(const std::optional<FileState> &one, const FileState &other)
{
    return one && one->device == other.device && one->inode == other.inode;
}

enum class Claim { Held, Lost, Unknown };

// With errno when it is unknown.
Claim lookAtClaim(const fs::path &destination, const std::optional<FileState> &claimed)
{
    const auto there = StateOf(destination);
    if (!there)
        return errno == ENOENT ? Claim::Lost : Claim::Unknown;
    if (there->size > 0)
        return Claim::Lost;
    if (!claimed)
        return Claim::Unknown;
    return isSameFile(there, *claimed) ? Claim::Held : Claim::Lost;
}

// The last resort, for file systems with neither. An empty file of ours keeps the name from everyone who
// creates; it is replaced only while it still is that file and still empty.
int claimThenRename(const fs::path &source, const fs::path &destination)
{
    FileDescriptor claim(
        ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!claim.isOpen())
        return errno;
    const auto claimed = StateOf(claim);
    int number = errno; // if it is not known
    claim.reset();      // servers refuse to replace an open file, or keep it under another name
    switch (lookAtClaim(destination, claimed)) {
    case Claim::Held:
        if (::rename(source.c_str(), destination.c_str()) == 0)
            return 0;
        number = errno;
        break;
    case Claim::Lost:
        return EEXIST;
    case Claim::Unknown:
        number = claimed ? errno : number;
        break;
    }
    // What is not known to be another's is what was made here a moment ago.
    if (lookAtClaim(destination, claimed) != Claim::Lost)
        ::unlink(destination.c_str());
    return number;
}

int moveOnVolume(const fs::path &source, const fs::path &destination, MoveWay first)
{
    if (first == MoveWay::RenameExclusively) {
        const int number = renameWith(kExclusive, source, destination);
        if (!isUnsupported(number))
            return number;
    }
    if (first != MoveWay::ClaimThenRename) {
        const int number = linkThenUnlink(source, destination);
        if (!isLinkUnsupported(number))
            return number;
    }
    return claimThenRename(source, destination);
}

int copyContents(const FileDescriptor &source, const FileDescriptor &copy)
{
    std::vector<char> block(kCopyBlock);
    for (;;) {
        const ssize_t got = ::read(source.get(), block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0 ? 0 : errno;
        if (const int number = WriteAll(copy, block.data(), static_cast<size_t>(got)))
            return number;
    }
}

// A file system without permissions or times keeps its own; that is no reason to refuse the copy.
void copyAttributes(const FileDescriptor &source, const FileDescriptor &copy)
{
    struct stat status = {};
    if (::fstat(source.get(), &status) != 0)
        return;
    (void)::fchmod(copy.get(), status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO));
#ifdef __APPLE__
    const std::array times{status.st_atimespec, status.st_mtimespec};
#else
    const std::array times{status.st_atim, status.st_mtim};
#endif
    (void)::futimens(copy.get(), times.data());
}

int copyTo(const fs::path &source, const fs::path &copyPath)
{
    const FileDescriptor from = OpenOrdinaryFile(source);
    if (!from.isOpen())
        return errno;
    const FileDescriptor copy(
        ::open(copyPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!copy.isOpen())
        return errno;
    if (const int number = copyContents(from, copy))
        return number;
    copyAttributes(from, copy);
    return SyncFile(copy);
}

fs::path folderOf(const fs::path &file)
{
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

// Through a private folder beside the destination: it goes even when the program is left in the middle.
bool moveAcrossVolumes(const fs::path &source, const fs::path &destination, Error *error, MoveWay first)
{
    const QString parent = QFile::decodeName(QByteArray::fromStdString(folderOf(destination).string()));
    const auto folder = PrivateFolder::create(parent, u".zarvo-"_s, error);
    if (!folder)
        return false;
    const fs::path copy(QFile::encodeName(folder->filePath(u"copy"_s)).toStdString());
    int number = copyTo(source, copy);
    if (number == 0)
        number = moveOnVolume(copy, destination, first);
    if (number != 0)
        return Fail(error, SavingFailed(destination, number));
    ::unlink(source.c_str());
    return true;
}

bool isAt(const fs::path &file, const FileState &state)
{
    return StateOf(file) == state;
}

// Gives what has lost its name, and cannot have it again, the next one that is free: "name (2).ipa". Should
// that fail too, the private folder that it has got into must stay.
void keepBeside(const fs::path &file, const fs::path &lostName)
{
    for (int number = 2; number <= kNamesTried; ++number) {
        fs::path name = lostName;
        name.replace_filename(lostName.stem());
        name += " (" + std::to_string(number) + ")";
        name += lostName.extension();
        const int failure = moveOnVolume(file, name, MoveWay::RenameExclusively);
        if (failure == 0)
            return;
        if (failure != EEXIST)
            break;
    }
    PrivateFolder::leaveHolderOf(QFile::decodeName(QByteArray::fromStdString(file.string())));
}

// Undoes an exchange by which a foreign file left its name: `source` holds it now. False when it could not
// have its name back; then it is kept under another one.
bool putBack(const fs::path &source, const fs::path &destination, const FileState &ours)
{
    if (renameWith(kExchange, source, destination) == 0) {
        if (isAt(source, ours))
            return true;
        // Someone has replaced ours in between: what was put there last is what belongs there.
        renameWith(kExchange, source, destination);
    } else if (moveOnVolume(source, destination, MoveWay::RenameExclusively) == 0) {
        return true; // ours was removed in between, and the name had become free
    }
    keepBeside(source, destination);
    return false;
}

// Nothing has the name any more, so there is nothing to replace.
Replacement takeFreeName(const fs::path &source, const fs::path &destination)
{
    switch (moveOnVolume(source, destination, MoveWay::RenameExclusively)) {
    case 0:
        return Replacement::Done;
    case EEXIST:
        return Replacement::Refused;
    default:
        return Replacement::Failed;
    }
}

// Whether nothing has this name.
bool isFree(const fs::path &file)
{
    return !StateOf(file) && errno == ENOENT;
}

} // namespace

Error SavingFailed(const fs::path &destination, int number)
{
    const QString name = QFile::decodeName(QByteArray::fromStdString(destination.filename().string()));
    return SystemError(u"Не удалось сохранить «%1»"_s.arg(name), number);
}

bool MoveWithoutReplacing(const fs::path &source, const fs::path &destination, Error *error, MoveWay first)
{
    const int number = moveOnVolume(source, destination, first);
    if (number == EXDEV)
        return moveAcrossVolumes(source, destination, error, first);
    return number == 0 || Fail(error, SavingFailed(destination, number));
}

Replacement ReplaceFile(const fs::path &source, const fs::path &destination, const FileState &expected,
                        ReplaceWay first)
{
    const auto ours = StateOf(source);
    if (!ours)
        return Replacement::Failed;
    if (isFree(destination))
        return takeFreeName(source, destination);
    if (!isAt(destination, expected))
        return Replacement::Refused;
    const int number = first == ReplaceWay::Exchange ? renameWith(kExchange, source, destination) : ENOTSUP;
    if (isUnsupported(number))
        return ::rename(source.c_str(), destination.c_str()) == 0 ? Replacement::Done : Replacement::Failed;
    if (number == ENOENT)
        return takeFreeName(source, destination);
    if (number != 0)
        return Replacement::Failed;
    if (isAt(source, expected)) {
        ::unlink(source.c_str());
        return Replacement::Done;
    }
    return putBack(source, destination, *ours) ? Replacement::Refused : Replacement::Failed;
}
