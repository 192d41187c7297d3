#include "core/whole_file.h"

#include "core/private_folder.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

int writeNew(const QByteArray &path, const QByteArray &contents)
{
    const FileDescriptor file(
        ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen())
        return errno;
    if (const int number = WriteAll(file, contents.constData(), static_cast<std::size_t>(contents.size())))
        return number;
    return SyncFile(file);
}

} // namespace

bool WriteWholeFile(const QString &path, const QByteArray &contents, Error *error)
{
    const QFileInfo target(path);
    const auto workshop = PrivateFolder::create(target.absolutePath(), u".zarvo-"_s, error);
    if (!workshop)
        return false;
    const QByteArray draft = QFile::encodeName(workshop->filePath(target.fileName()));
    const QByteArray name = QFile::encodeName(target.absoluteFilePath());
    int number = writeNew(draft, contents);
    if (number == 0 && ::rename(draft.constData(), name.constData()) != 0)
        number = errno;
    if (number != 0)
        return Fail(error, SystemError(u"Не удалось записать «%1»"_s.arg(target.fileName()), number));
    // The file is in its place: that its entry may reach the disk later is no reason to call it missing.
    static_cast<void>(SyncFolderOf(name.toStdString()));
    return true;
}

int WriteAll(const FileDescriptor &file, const char *bytes, std::size_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(file.get(), bytes, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

int SyncFile(const FileDescriptor &file)
{
#ifdef __APPLE__
    if (::fcntl(file.get(), F_FULLFSYNC) == 0)
        return 0;
#endif
    while (::fsync(file.get()) != 0) {
        if (errno == EINTR)
            continue;
        constexpr std::array kNotPromised{EINVAL, ENOSYS, ENOTSUP, EOPNOTSUPP, EROFS};
        const bool isFailure =
            std::find(kNotPromised.begin(), kNotPromised.end(), errno) == kNotPromised.end();
        return isFailure ? errno : 0;
    }
    return 0;
}

int SyncFolderOf(const std::filesystem::path &file)
{
    // A folder that may only be written cannot be opened; its entries reach the disk in their own time.
    const auto path = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.isOpen() ? SyncFile(folder) : 0;
}
