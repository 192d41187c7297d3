#include "installed_apps.h"

#include "plist_codec.h"

#include <QDir>
#include <QDirIterator>
#include <QSaveFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kSuffix = u".plist"_s;

} // namespace

InstalledApps::InstalledApps(QString directory)
    : m_directory(std::move(directory))
{
    if (m_directory.isEmpty())
        return;
    QDirIterator files(m_directory, {u"*"_s + kSuffix}, QDir::Files);
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        if (const auto app = decodePlist(file.readAll()))
            m_changes.insert(files.fileName().chopped(kSuffix.size()), *app);
    }
}

void InstalledApps::setPreinstalled(const QList<QVariantMap> &apps)
{
    const std::scoped_lock lock(m_mutex);
    m_preinstalled.clear();
    for (const QVariantMap &app : apps)
        m_preinstalled.insert(app[u"CFBundleIdentifier"_s].toString(), app);
}

QList<QVariantMap> InstalledApps::list() const
{
    const std::scoped_lock lock(m_mutex);
    QMap<QString, QVariantMap> all = m_preinstalled;
    all.insert(m_changes);
    all.removeIf([](const auto &app) { return app.value().isEmpty(); });
    return all.values();
}

bool InstalledApps::keep(const QString &id) const
{
    if (m_directory.isEmpty())
        return true;
    if (!QDir().mkpath(m_directory))
        return false;
    QSaveFile file(m_directory + u'/' + id + kSuffix);
    return file.open(QIODevice::WriteOnly) && file.write(encodePlist(m_changes[id])) > 0 && file.commit();
}

bool InstalledApps::put(const QVariantMap &app)
{
    const QString id = app[u"CFBundleIdentifier"_s].toString();
    if (id.isEmpty() || id.startsWith(u'.') || id.contains(u'/'))
        return false;
    const std::scoped_lock lock(m_mutex);
    m_changes.insert(id, app);
    return keep(id);
}

bool InstalledApps::remove(const QString &id)
{
    const std::scoped_lock lock(m_mutex);
    const bool present = m_changes.contains(id) ? !m_changes[id].isEmpty() : m_preinstalled.contains(id);
    if (!present)
        return false;
    m_changes.insert(id, {});
    return keep(id);
}

qint64 InstalledApps::bytes() const
{
    const std::scoped_lock lock(m_mutex);
    qint64 sum = 0;
    for (const QVariantMap &app : m_changes)
        sum += app[u"StaticDiskUsage"_s].toLongLong();
    return sum;
}
