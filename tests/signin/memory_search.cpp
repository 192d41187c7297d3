#include "signin/memory_search.h"

#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

constexpr unsigned char kMask = 0xA5;
constexpr qsizetype kPart = 8;
constexpr std::size_t kBlock = 1 << 20;
constexpr std::size_t kOverlap = std::size_t{4} * 128; // no canary is longer, in any encoding
constexpr std::uint64_t kLargestRegion = 1 << 30;      // the sanitizers' tables are larger

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The bytes that are being looked at. Shared memory is a region of its own, which the search can leave out.
char *block()
{
    static void *const place =
        ::mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return static_cast<char *>(place);
}

// From `from` to `to` of the file, or to its end.
qsizetype countInRange(const Canary &canary, int file, std::uint64_t from, std::uint64_t to)
{
    qsizetype found = 0;
    while (from < to) {
        const std::size_t wanted = std::min<std::uint64_t>(kBlock, to - from);
        const ssize_t got = ::pread(file, block(), wanted, static_cast<off_t>(from));
        if (got <= 0)
            break;
        const auto size = static_cast<std::size_t>(got);
        const bool last = size < wanted || from + size >= to;
        const std::size_t starts =
            last ? size : size - kOverlap; // the others are met again with the next block
        found += canary.countIn(block(), size, starts);
        from = last ? to : from + starts;
    }
    return found;
}

qsizetype countPartInMemory(const Canary &canary)
{
    const int dumpable = ::prctl(PR_GET_DUMPABLE);
    ::prctl(PR_SET_DUMPABLE, 1); // else only root may look
    QFile list(u"/proc/self/maps"_s);
    const int memory = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    const auto own = reinterpret_cast<std::uintptr_t>(block());
    if (memory < 0 || !list.open(QIODevice::ReadOnly))
        qFatal("the memory of this process cannot be read");
    qsizetype found = 0;
    for (const QByteArray &line : list.readAll().split('\n')) {
        const QByteArray range = line.left(line.indexOf(' '));
        const std::uint64_t from = range.left(range.indexOf('-')).toULongLong(nullptr, 16);
        const std::uint64_t to = range.mid(range.indexOf('-') + 1).toULongLong(nullptr, 16);
        if (line.mid(range.size() + 1, 1) != "r" || to - from >= kLargestRegion || from == own)
            continue;
        const qsizetype here = countInRange(canary, memory, from, to);
        if (here > 0) // for who has to find out how it got there
            qInfo("%lld in %s", static_cast<long long>(here), line.constData());
        found += here;
    }
    ::close(memory);
    ::prctl(PR_SET_DUMPABLE, dumpable);
    return found;
}

} // namespace

Canary Canary::of(QByteArrayView alphabet, qsizetype length)
{
    QByteArray masked;
    for (qsizetype i = 0; i < length; ++i) {
        const auto letter = QRandomGenerator::global()->bounded(static_cast<quint32>(alphabet.size()));
        masked.append(static_cast<char>(alphabet[letter] ^ kMask));
    }
    return Canary(masked);
}

QChar Canary::at(qsizetype index) const
{
    return QLatin1Char(static_cast<char>(m_masked[index] ^ kMask));
}

std::vector<Canary> Canary::parts() const
{
    std::vector<Canary> all;
    for (qsizetype from = 0; from < size(); from += all.back().size())
        all.emplace_back(m_masked.mid(from, size() - from < 2 * kPart ? -1 : kPart));
    return all;
}

bool Canary::isAt(const char *bytes, std::size_t stride) const
{
    for (const char masked : m_masked) {
        if (static_cast<char>(*bytes ^ kMask) != masked ||
            std::any_of(bytes + 1, bytes + stride, [](char padding) { return padding != 0; }))
            return false;
        bytes += stride;
    }
    return true;
}

qsizetype Canary::countIn(const char *bytes, std::size_t size, std::size_t starts) const
{
    qsizetype found = 0;
    const auto length = static_cast<std::size_t>(m_masked.size());
    const int first = at(0).toLatin1();
    for (const char *at = bytes; at < bytes + starts; ++at) {
        at = static_cast<const char *>(std::memchr(at, first, static_cast<std::size_t>(bytes + starts - at)));
        if (!at)
            break;
        for (const std::size_t stride : {1U, 2U, 4U}) {
            // Within a longer number, six digits stand by chance: memory is full of numbers.
            const char *end = at + length * stride;
            if (length * stride <= static_cast<std::size_t>(bytes + size - at) && isAt(at, stride) &&
                !(at - bytes >= static_cast<std::ptrdiff_t>(stride) && isDigit(*(at - stride))) &&
                !(end < bytes + size && isDigit(*end)))
                ++found;
        }
    }
    return found;
}

qsizetype CountInMemory(const Canary &canary)
{
    qsizetype most = 0;
    for (const Canary &part : canary.parts())
        most = std::max(most, countPartInMemory(part));
    return most;
}

qsizetype CountInFile(const Canary &canary, const QString &path)
{
    const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return 0;
    const qsizetype found = countInRange(canary, file, 0, UINT64_MAX >> 1);
    ::close(file);
    return found;
}

qsizetype CountBelow(const Canary &canary, const QString &folder)
{
    qsizetype found = 0;
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QByteArray name = QFile::encodeName(files.next());
        const auto size = static_cast<std::size_t>(name.size());
        found += CountInFile(canary, files.filePath()) + canary.countIn(name.constData(), size, size);
    }
    return found;
}
