// What a test finds in files and folders.
#pragma once

#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QString>
#include <QStringList>

/// Empty when the file cannot be read.
inline QByteArray ContentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The paths of all files, folders and links below `folder` whose names match, hidden ones too.
inline QStringList FilesBelow(const QString &folder, const QString &pattern)
{
    QStringList found;
    QDirIterator walk(folder, {pattern}, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext())
        found.append(walk.next());
    return found;
}
