// The part of a phone's storage that computers may write to: a folder here.
#pragma once

#include <QString>

#include <atomic>
#include <optional>

/// Any thread.
class Media
{
public:
    /// Makes the folder when it is not there.
    explicit Media(QString root);

    /// The file here that a path of the phone means; nothing when the path leads out.
    std::optional<QString> resolve(const QString &path) const;
    /// What lies in the folder, in bytes, as far as it was told by grew().
    qint64 bytes() const { return m_bytes; }
    void grew(qint64 by) { m_bytes += by; }
    /// Removes a file, or a folder with what is in it.
    bool removeAll(const QString &file);

private:
    const QString m_root;
    std::atomic<qint64> m_bytes = 0;
};
