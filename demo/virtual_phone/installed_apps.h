// The apps on a phone: those it came with, and what was installed and removed since.
#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include <mutex>
#include <optional>

/// Any thread. An app is a dictionary of fields as Browse gives them.
class InstalledApps
{
public:
    /// Changes persist in `directory`, which need not exist yet; empty: they last as long as the object.
    explicit InstalledApps(QString directory);

    void setPreinstalled(const QList<QVariantMap> &apps);
    QList<QVariantMap> list() const;
    /// False when it could not be kept, or when its identifier is none.
    bool put(const QVariantMap &app);
    /// False when there is no such app.
    bool remove(const QString &id);
    /// The room that apps installed since take, in bytes.
    qint64 bytes() const;

private:
    bool keep(const QString &id) const;

    const QString m_directory;
    mutable std::mutex m_mutex;
    QMap<QString, QVariantMap> m_preinstalled;
    QMap<QString, QVariantMap> m_changes; ///< an empty app was removed
};
