#include "device/history_writer.h"

#include "core/background.h"
#include "core/private_folder.h"
#include "core/whole_file.h"
#include "ipa/held_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kProgram = u"Zarvo"_s; // organisation and application
const QString kSettingsKey = u"zarvo.deviceHistory.v1"_s;

#ifdef Q_OS_DARWIN

QVariant stored()
{
    return QSettings(kProgram, kProgram).value(kSettingsKey);
}

// The system keeps the settings, in a process of its own.
void replaceStored(const QVariantList &history)
{
    QSettings settings(kProgram, kProgram);
    settings.setValue(kSettingsKey, history);
    settings.sync();
}

#else

constexpr int kLinksFollowed = 40; // as the system does

// By its name, because Qt is told to keep settings of its own elsewhere, which goes for all that are
// not named.
QString settingsFile()
{
    const QSettings neighbour(QSettings::IniFormat, QSettings::UserScope, kProgram, kProgram);
    return QFileInfo(neighbour.fileName()).absolutePath() + u"/%1.conf"_s.arg(kProgram);
}

QVariant stored()
{
    return QSettings(settingsFile(), QSettings::NativeFormat).value(kSettingsKey);
}

// Who keeps the settings elsewhere, and a link here, finds them there. Whether the file is there or not.
QString endOfLinks(QString file)
{
    for (int i = 0; i < kLinksFollowed && QFileInfo(file).isSymLink(); ++i)
        file = QFileInfo(file).symLinkTarget();
    return file;
}

// What another user's folder gets would be out of that user's reach.
bool isOurs(const QString &folder)
{
    return QFileInfo(folder).ownerId() == ::geteuid();
}

// Nothing when there is something that cannot be read: it must not be lost.
std::optional<QByteArray> contentsOf(const QString &path)
{
    const FileDescriptor opened = OpenOrdinaryFile(QFile::encodeName(path).toStdString());
    if (!opened.isOpen())
        return errno == ENOENT ? std::make_optional(QByteArray()) : std::nullopt;
    QFile file;
    if (!file.open(opened.get(), QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray contents = file.readAll();
    return file.error() == QFileDevice::NoError ? std::make_optional(contents) : std::nullopt;
}

bool isSame(const QSettings &one, const QSettings &other)
{
    const QStringList keys = one.allKeys();
    return keys == other.allKeys() && std::all_of(keys.begin(), keys.end(), [&](const QString &key) {
               // An empty list is stored as no value.
               return key == kSettingsKey ? one.value(key).toList() == other.value(key).toList()
                                          : one.value(key) == other.value(key);
           });
}

// The settings with this history in them, as Qt writes them: where nothing is lost and nobody waits,
// because for a lock it waits without end, and a disk that is full makes it leave a cut file without a word.
std::optional<QByteArray> withHistory(const QByteArray &settings, const QVariantList &history,
                                      const QString &folder)
{
    const auto workshop = PrivateFolder::create(folder, u".zarvo-"_s);
    const QString former = workshop ? workshop->filePath(u"former"_s) : QString();
    if (!workshop || !WriteWholeFile(former, settings))
        return std::nullopt;
    const QString draft = workshop->filePath(u"draft"_s);
    QSettings wanted(draft, QSettings::NativeFormat);
    const QSettings before(former, QSettings::NativeFormat);
    for (const QString &key : before.allKeys()) // one by one: a damaged name is no obstacle
        wanted.setValue(key, before.value(key));
    wanted.setValue(kSettingsKey, history);
    wanted.sync();
    const QString written =
        workshop->filePath(u"written"_s); // of a name that it knows it reads no file again
    if (!QFile::rename(draft, written) || !isSame(wanted, QSettings(written, QSettings::NativeFormat)))
        return std::nullopt;
    return contentsOf(written);
}

void replaceStored(const QVariantList &history)
{
    const QString file = endOfLinks(settingsFile());
    const QString folder = QFileInfo(file).absolutePath();
    if (!QDir().mkpath(folder) || !isOurs(folder))
        return;
    const auto before = contentsOf(file);
    const auto after = before ? withHistory(*before, history, folder) : std::nullopt;
    if (after)
        WriteWholeFile(file, *after);
}

#endif

} // namespace

QVariant HistoryWriter::load()
{
    return stored();
}

void HistoryWriter::store(QVariantList history, Background &background)
{
    {
        const std::lock_guard lock(m_mutex);
        m_newest = std::move(history);
        if (std::exchange(m_isWriting, true))
            return;
    }
    if (!background.run([this] { write(); }))
        write(); // late is better than never
}

void HistoryWriter::write()
{
    while (const auto history = next())
        replaceStored(*history);
}

std::optional<QVariantList> HistoryWriter::next()
{
    const std::lock_guard lock(m_mutex);
    m_isWriting = m_newest.has_value();
    return std::exchange(m_newest, std::nullopt);
}
