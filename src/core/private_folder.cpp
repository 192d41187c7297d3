#include "core/private_folder.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDoomedSuffix = ".removed";
// A file that was being made while the folder was emptied keeps it in place: a few rounds suffice.
constexpr int kRemovalRounds = 20;
constexpr auto kRemovalPause = std::chrono::milliseconds(25);

struct Registry
{
    std::mutex mutex;
    std::vector<QString> alive;
    bool closed = false;
};

Registry &registry()
{
    static auto *const shared =
        new Registry; // outlives every thread, also those that are not waited for at exit
    return *shared;
}

void removeTree(const QString &path)
{
    const std::filesystem::path folder(QFile::encodeName(path).toStdString());
    // Under another name a child that goes on for a while finds it no more and has nowhere to put further
    // files.
    std::filesystem::path doomed = folder;
    doomed += kDoomedSuffix;
    std::error_code failure;
    std::filesystem::rename(folder, doomed, failure); // two threads may be at it on the way out: one succeeds
    for (int round = 0; round < kRemovalRounds; ++round) {
        bool isLeft = false;
        for (const auto &name : {doomed, folder}) {
            std::filesystem::remove_all(name, failure);
            isLeft |= failure == std::errc::directory_not_empty || failure == std::errc::file_exists;
        }
        if (!isLeft)
            return;
        std::this_thread::sleep_for(kRemovalPause);
    }
}

} // namespace

std::optional<PrivateFolder> PrivateFolder::create(const QString &parent, const QString &prefix, Error *error)
{
    const QString name = prefix + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString path = QDir(parent).absoluteFilePath(name);
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    const bool made = !all.closed && ::mkdir(QFile::encodeName(path).constData(), S_IRWXU) == 0;
    if (!made) {
        const int number = all.closed ? ECANCELED : errno;
        const QString what =
            u"Не удалось создать рабочую папку в «%1»"_s.arg(QDir::toNativeSeparators(parent));
        Fail(error, SystemError(what, number));
        return std::nullopt;
    }
    all.alive.push_back(path);
    return PrivateFolder(path);
}

std::optional<PrivateFolder> PrivateFolder::createTemporary(Error *error)
{
    // For a folder that is not there the toolkit gives the empty text, which would be the current folder.
    const QString folder = QDir::tempPath();
    return create(folder.isEmpty() ? qEnvironmentVariable("TMPDIR") : folder, {}, error);
}

PrivateFolder::PrivateFolder(QString path)
    : m_path(std::move(path))
{
}

PrivateFolder::PrivateFolder(PrivateFolder &&other) noexcept
    : m_path(std::exchange(other.m_path, {}))
{
}

PrivateFolder &PrivateFolder::operator=(PrivateFolder &&other) noexcept
{
    if (this != &other) {
        remove();
        m_path = std::exchange(other.m_path, {});
    }
    return *this;
}

PrivateFolder::~PrivateFolder()
{
    remove();
}

QString PrivateFolder::filePath(const QString &name) const
{
    return m_path + u'/' + name;
}

void PrivateFolder::remove()
{
    if (m_path.isEmpty())
        return;
    removeTree(m_path);
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    std::erase(all.alive, m_path);
    m_path.clear();
}

void PrivateFolder::removeAll()
{
    Registry &all = registry();
    std::vector<QString> left;
    {
        const std::lock_guard lock(all.mutex);
        all.closed = true;
        left = all.alive;
    }
    for (const QString &path : left)
        removeTree(path);
}
