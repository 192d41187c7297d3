#include "core/private_folder.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDoomedSuffix = ".removed";
// A file that was being made while the folder was emptied keeps it in place, and so does a shortage of
// descriptors or memory: a few rounds suffice.
constexpr int kRemovalRounds = 20;
constexpr auto kRemovalPause = std::chrono::milliseconds(25);

struct Entry
{
    QString path;
    bool isMade = false;   // enrolled before it is made, so that none can be overlooked
    bool isDoomed = false; // somebody is at removing it
};

struct FolderRegistry
{
    std::mutex mutex; // never held while a file system is asked: that of a dead server does not answer
    std::condition_variable changed;
    std::vector<Entry> alive;
    bool closed = false;

    std::vector<Entry>::iterator find(const QString &path)
    {
        return std::find_if(alive.begin(), alive.end(),
                            [&path](const Entry &entry) { return entry.path == path; });
    }
};

FolderRegistry &folderRegistry()
{
    static auto *const shared =
        new FolderRegistry; // outlives every thread, also those that are not waited for at exit
    return *shared;
}

void removeTree(const QString &path)
{
    const std::filesystem::path folder(QFile::encodeName(path).toStdString());
    // Under another name: a child that goes on for a while finds it no more and can put nothing into it.
    std::filesystem::path doomed = folder;
    doomed += kDoomedSuffix;
    std::error_code failure;
    std::filesystem::rename(folder, doomed, failure);
    for (int round = 0; round < kRemovalRounds; ++round) {
        bool isLeft = false;
        for (const auto &name : {doomed, folder}) {
            std::filesystem::remove_all(name, failure);
            isLeft |= failure.operator bool();
        }
        if (!isLeft)
            return;
        std::this_thread::sleep_for(kRemovalPause);
    }
}

bool enroll(const QString &path)
{
    FolderRegistry &all = folderRegistry();
    const std::lock_guard lock(all.mutex);
    if (!all.closed)
        all.alive.push_back({path});
    return !all.closed;
}

void forget(const QString &path)
{
    FolderRegistry &all = folderRegistry();
    const std::lock_guard lock(all.mutex);
    std::erase_if(all.alive, [&path](const Entry &entry) { return entry.path == path; });
    all.changed.notify_all();
}

// On the way out a folder is removed for its owner and for the program. Two at it would stop at what the
// other has removed, and say that nothing is left while the other is not done: so one does it, and the other
// waits.
void removeOnce(const QString &path)
{
    FolderRegistry &all = folderRegistry();
    {
        std::unique_lock lock(all.mutex);
        const auto entry = all.find(path);
        if (entry == all.alive.end())
            return;
        if (std::exchange(entry->isDoomed, true)) {
            all.changed.wait(lock, [&] { return all.find(path) == all.alive.end(); });
            return;
        }
    }
    removeTree(path);
    forget(path);
}

// False when the program has begun to leave while the folder was being made.
bool markMade(const QString &path)
{
    FolderRegistry &all = folderRegistry();
    const std::lock_guard lock(all.mutex);
    if (const auto entry = all.find(path); entry != all.alive.end())
        entry->isMade = true;
    all.changed.notify_all();
    return !all.closed;
}

// Body of a thread on the way out of the program.
void removeOnceMade(const QString &path)
{
    FolderRegistry &all = folderRegistry();
    {
        std::unique_lock lock(all.mutex);
        all.changed.wait(lock, [&] {
            const auto entry = all.find(path);
            return entry == all.alive.end() || entry->isMade;
        });
    }
    removeOnce(path);
}

} // namespace

std::optional<PrivateFolder> PrivateFolder::create(const QString &parent, const QString &prefix, Error *error)
{
    const QString name = prefix + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString path = QDir(parent).absoluteFilePath(name);
    const auto failure = [&](int number) {
        const QString what =
            u"Не удалось создать рабочую папку в «%1»"_s.arg(QDir::toNativeSeparators(parent));
        Fail(error, SystemError(what, number));
        return std::nullopt;
    };
    if (!enroll(path))
        return failure(ECANCELED);
    if (::mkdir(QFile::encodeName(path).constData(), S_IRWXU) != 0) {
        const int number = errno;
        forget(path);
        return failure(number);
    }
    PrivateFolder folder(path);
    if (!markMade(path))
        return failure(ECANCELED);
    return folder;
}

std::optional<PrivateFolder> PrivateFolder::createTemporary(Error *error)
{
    // For a folder that is not there Qt gives the empty text, which would be the current folder.
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
    return QDir(m_path).filePath(name);
}

void PrivateFolder::remove()
{
    if (m_path.isEmpty())
        return;
    removeOnce(m_path);
    m_path.clear();
}

void PrivateFolder::leaveHolderOf(const QString &file)
{
    FolderRegistry &all = folderRegistry();
    const std::lock_guard lock(all.mutex);
    std::erase_if(all.alive, [&file](const Entry &entry) { return file.startsWith(entry.path + u'/'); });
    all.changed.notify_all();
}

bool PrivateFolder::removeAll(std::chrono::milliseconds limit)
{
    FolderRegistry &all = folderRegistry();
    std::vector<Entry> left;
    {
        const std::lock_guard lock(all.mutex);
        all.closed = true;
        left = all.alive;
    }
    // A thread for each: one that is on a dead server does not keep the others from going.
    for (const Entry &entry : left) {
        try {
            std::thread(removeOnceMade, entry.path).detach();
        } catch (const std::system_error &) {
            if (entry.isMade)
                removeOnceMade(entry.path);
        }
    }
    std::unique_lock lock(all.mutex);
    return all.changed.wait_for(lock, limit, [&] { return all.alive.empty(); });
}
