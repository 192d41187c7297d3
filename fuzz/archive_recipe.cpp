#include "archive_recipe.h"

#include "ipa_writer.h"

#include <QFile>
#include <QList>

#include <algorithm>
#include <utility>

namespace {

constexpr qint64 kMostPadding = qint64{64} << 10;
constexpr qsizetype kMostFiles = 64;

struct Line
{
    char kind;
    QByteArray words;
};

QList<Line> linesOf(QByteArrayView recipe)
{
    QList<Line> lines;
    for (const QByteArray &line : recipe.toByteArray().split('\n')) {
        if (!line.isEmpty())
            lines.append({line.front(), line.sliced(std::min<qsizetype>(2, line.size()))});
    }
    return lines;
}

QByteArray description(const QByteArray &words, bool binary)
{
    QList<QByteArray> values = words.split(' ');
    values.resize(3);
    return infoPropertyList({.id = QString::fromUtf8(values[0]),
                             .executable = QString::fromUtf8(values[1]),
                             .version = QString::fromUtf8(values[2]),
                             .binaryInfo = binary});
}

void change(ZipEntry &entry, const Line &line)
{
    switch (line.kind) {
    case 'd':
        entry.data += line.words;
        break;
    case 'i':
    case 'b':
        entry.data += description(line.words, line.kind == 'b');
        break;
    case 'z':
        entry.padding = std::clamp<qint64>(line.words.toLongLong(), 0, kMostPadding);
        break;
    case 'm':
        entry.mode = line.words.toUInt(nullptr, 8);
        break;
    case 'x':
        entry.flags = line.words.toUShort(nullptr, 16);
        break;
    case 's':
        entry.deflated = false;
        break;
    case 'c':
        entry.damaged = true;
        break;
    default:
        break;
    }
}

void change(QByteArray &archive, const Line &line)
{
    const QList<QByteArray> numbers = line.words.split(' ');
    switch (line.kind) {
    case '@': {
        const qint64 position = numbers.front().toLongLong();
        const qint64 at = position < 0 ? archive.size() + position : position;
        if (at >= 0 && at < archive.size())
            archive[at] = static_cast<char>(numbers.back().toInt(nullptr, 0));
        break;
    }
    case '-':
        archive.chop(std::clamp<qint64>(numbers.front().toLongLong(), 0, archive.size()));
        break;
    case '+':
        archive += line.words;
        break;
    case '<':
        archive.prepend(line.words);
        break;
    default:
        break;
    }
}

QList<ZipEntry> entriesOf(const QList<Line> &lines)
{
    QList<ZipEntry> entries;
    for (const Line &line : lines) {
        if (line.kind == 'f' && entries.size() < kMostFiles)
            entries.append({.name = line.words});
        else if (!entries.isEmpty())
            change(entries.back(), line);
    }
    return entries;
}

} // namespace

bool WriteArchive(const std::filesystem::path &path, QByteArrayView recipe)
{
    QFile file(path);
    if (recipe.startsWith("PK"))
        return file.open(QIODevice::WriteOnly) && file.write(recipe.data(), recipe.size()) == recipe.size();
    const QList<Line> lines = linesOf(recipe);
    if (!writeZip(path, entriesOf(lines)) || !file.open(QIODevice::ReadWrite))
        return false;
    QByteArray archive = file.readAll();
    for (const Line &line : lines)
        change(archive, line);
    return file.resize(0) && file.seek(0) && file.write(archive) == archive.size();
}
