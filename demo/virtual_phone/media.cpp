#include "media.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <utility>

namespace {

qint64 bytesBelow(const QString &folder)
{
    qint64 sum = 0;
    QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        files.next();
        sum += files.fileInfo().size();
    }
    return sum;
}

} // namespace

Media::Media(QString root)
    : m_root(std::move(root))
    , m_bytes(bytesBelow(m_root))
{
    QDir().mkpath(m_root);
}

std::optional<QString> Media::resolve(const QString &path) const
{
    QString file = m_root;
    for (const QString &part : path.split(u'/', Qt::SkipEmptyParts)) {
        if (part == QStringLiteral(".."))
            return std::nullopt;
        if (part != QStringLiteral("."))
            file += u'/' + part;
    }
    return file;
}

bool Media::removeAll(const QString &file)
{
    const QFileInfo info(file);
    const qint64 freed = info.isDir() ? bytesBelow(file) : info.size();
    const bool removed = info.isDir() ? QDir(file).removeRecursively() : QFile::remove(file);
    if (removed)
        grew(-freed);
    return removed;
}
