#include "signin/memory_search.h"

#include <QByteArray>
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
constexpr std::size_t kBlock = 1 << 20;
constexpr std::size_t kPart = 8;
constexpr std::size_t kOverlap = 4 * 128; // no canary is longer, in any encoding
constexpr std::uint64_t kLargestRegion =
    1 << 30; // the sanitizers' tables, terabytes of address space, are larger

// The bytes that are being looked at, in a place of their own that is left out of the search.
class Block
{
public:
    Block()
        : m_bytes(static_cast<unsigned char *>(
              ::mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~Block()
    {
        ::explicit_bzero(m_bytes, kBlock);
        ::munmap(m_bytes, kBlock);
    }
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    unsigned char *bytes() const { return m_bytes; }
    std::uint64_t address() const { return reinterpret_cast<std::uintptr_t>(m_bytes); }

private:
    unsigned char *m_bytes;
};

// From `from` to `to` of the file, or to its end.
qsizetype countInRange(const Canary &canary, int file, const Block &block, std::uint64_t from,
                       std::uint64_t to)
{
    qsizetype found = 0;
    while (from < to) {
        const std::size_t wanted = std::min<std::uint64_t>(kBlock, to - from);
        const ssize_t got = ::pread(file, block.bytes(), wanted, static_cast<off_t>(from));
        if (got <= 0)
            break;
        const auto size = static_cast<std::size_t>(got);
        found += canary.countIn(block.bytes(), size);
        if (size < wanted || from + size >= to)
            break;
        // What lies across the border is counted with the next block; what lies in the overlap must not count
        // twice.
        found -= canary.countIn(block.bytes() + size - kOverlap, kOverlap);
        from += size - kOverlap;
    }
    return found;
}

} // namespace

Canary Canary::of(const char *alphabet, qsizetype length)
{
    Canary canary;
    const auto letters = static_cast<quint32>(std::strlen(alphabet));
    for (qsizetype i = 0; i < length; ++i)
        canary.m_masked.push_back(
            static_cast<unsigned char>(alphabet[QRandomGenerator::global()->bounded(letters)] ^ kMask));
    return canary;
}

Canary Canary::ofLetters(qsizetype length)
{
    return of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", length);
}

Canary Canary::ofDigits(qsizetype length)
{
    return of("0123456789", length);
}

QChar Canary::at(qsizetype index) const
{
    return QChar(static_cast<char16_t>(m_masked[static_cast<std::size_t>(index)] ^ kMask));
}

std::vector<Canary> Canary::parts() const
{
    std::vector<Canary> all;
    for (auto from = m_masked.begin(); from != m_masked.end();) {
        const auto left = static_cast<std::size_t>(m_masked.end() - from);
        const auto to = from + static_cast<std::ptrdiff_t>(left < 2 * kPart ? left : kPart);
        all.emplace_back().m_masked.assign(from, to);
        from = to;
    }
    return all;
}

bool Canary::isAt(const unsigned char *bytes, std::size_t stride) const
{
    for (std::size_t i = 0; i < m_masked.size(); ++i) {
        if ((bytes[i * stride] ^ kMask) != m_masked[i])
            return false;
        for (std::size_t padding = 1; padding < stride; ++padding) {
            if (bytes[i * stride + padding] != 0)
                return false;
        }
    }
    return true;
}

qsizetype Canary::countIn(const unsigned char *bytes, std::size_t size) const
{
    qsizetype found = 0;
    const unsigned char first = m_masked[0] ^ kMask;
    const unsigned char *const end = bytes + size;
    for (const unsigned char *at = bytes; at < end; ++at) {
        at = static_cast<const unsigned char *>(std::memchr(at, first, static_cast<std::size_t>(end - at)));
        if (!at)
            break;
        for (const std::size_t stride : {1U, 2U, 4U}) {
            if (m_masked.size() * stride <= static_cast<std::size_t>(end - at) && isAt(at, stride))
                ++found;
        }
    }
    return found;
}

static qsizetype countPartInMemory(const Canary &canary)
{
    const Block block;
    const int dumpable = ::prctl(PR_GET_DUMPABLE);
    ::prctl(PR_SET_DUMPABLE, 1); // else only root may look
    QFile list(u"/proc/self/maps"_s);
    const int memory = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (memory < 0 || !list.open(QIODevice::ReadOnly))
        qFatal("the memory of this process cannot be read");
    qsizetype found = 0;
    for (const QByteArray &line : list.readAll().split('\n')) {
        const QByteArray range = line.left(line.indexOf(' '));
        const std::uint64_t from = range.left(range.indexOf('-')).toULongLong(nullptr, 16);
        const std::uint64_t to = range.mid(range.indexOf('-') + 1).toULongLong(nullptr, 16);
        const bool readable = line.mid(range.size() + 1, 1) == "r";
        if (readable && to - from < kLargestRegion && !(from <= block.address() && block.address() < to))
            found += countInRange(canary, memory, block, from, to);
        else if (readable && from < block.address() && block.address() < to)
            found += countInRange(canary, memory, block, from, block.address()) +
                     countInRange(canary, memory, block, block.address() + kBlock, to);
    }
    ::close(memory);
    ::prctl(PR_SET_DUMPABLE, dumpable);
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
    const Block block;
    const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return 0;
    const qsizetype found = countInRange(canary, file, block, 0, UINT64_MAX >> 1);
    ::close(file);
    return found;
}

qsizetype CountBelow(const Canary &canary, const QString &folder)
{
    qsizetype found = 0;
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        const QByteArray name = QFile::encodeName(path);
        found += CountInFile(canary, path) +
                 canary.countIn(reinterpret_cast<const unsigned char *>(name.constData()),
                                static_cast<std::size_t>(name.size()));
    }
    return found;
}
