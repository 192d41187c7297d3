#include "ipa_writer.h"

#include <QtEndian>

#include <plist/plist.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {

constexpr qsizetype kBlock = qsizetype{1} << 20;
constexpr qint64 kMaxPaddingOfEntry = qint64{1} << 30;

constexpr quint32 kLocalSignature = 0x04034b50;
constexpr quint32 kCentralSignature = 0x02014b50;
constexpr quint32 kEndSignature = 0x06054b50;
constexpr quint32 kEnd64Signature = 0x06064b50;
constexpr quint32 kLocator64Signature = 0x07064b50;

constexpr quint16 kVersion = 45;             // understands ZIP64
constexpr quint16 kMadeByUnix = 3 << 8 | 45; // external attributes hold a mode
constexpr quint16 kDate = (2024 - 1980) << 9 | 1 << 5 | 1;
constexpr qint64 kIn64 = 0xFFFFFFFF; // "see the ZIP64 record"
constexpr qint64 kIn64Count = 0xFFFF;

template <typename T>
void put(QByteArray &to, qint64 value)
{
    const T little = qToLittleEndian(static_cast<T>(value));
    to.append(reinterpret_cast<const char *>(&little), sizeof little);
}

quint32 checksumOf(const QByteArray &bytes, quint32 start = 0)
{
    return static_cast<quint32>(::crc32_z(start, reinterpret_cast<const Bytef *>(bytes.constData()),
                                          static_cast<size_t>(bytes.size())));
}

QByteArray deflate(const QByteArray &bytes)
{
    z_stream stream = {};
    if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    QByteArray packed(static_cast<qsizetype>(::deflateBound(&stream, static_cast<uLong>(bytes.size()))),
                      Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.constData()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    ::deflate(&stream, Z_FINISH);
    packed.truncate(static_cast<qsizetype>(stream.total_out));
    ::deflateEnd(&stream);
    return packed;
}

// The same bytes at every run, and none that a compressor would gain from.
const QByteArray &noise()
{
    static const QByteArray block = [] {
        QByteArray bytes(kBlock, Qt::Uninitialized);
        quint64 state = 0x9E3779B97F4A7C15;
        for (qsizetype i = 0; i < kBlock; ++i) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            bytes[i] = static_cast<char>(state >> 32);
        }
        return bytes;
    }();
    return block;
}

struct Fields
{
    quint16 method;
    quint32 checksum;
    qint64 packedSize;
    qint64 size;
};

// What the local and the central header have in common, up to the length of the name.
void putCommon(QByteArray &to, const ZipEntry &entry, const Fields &fields)
{
    put<quint16>(to, kVersion);
    put<quint16>(to, entry.flags);
    put<quint16>(to, fields.method);
    put<quint16>(to, 0);
    put<quint16>(to, kDate);
    put<quint32>(to, fields.checksum);
    put<quint32>(to, fields.packedSize);
    put<quint32>(to, fields.size);
    put<quint16>(to, entry.name.size());
}

QByteArray centralHeader(const ZipEntry &entry, const Fields &fields, qint64 offset)
{
    QByteArray extra;
    if (offset >= kIn64) {
        put<quint16>(extra, 0x0001);
        put<quint16>(extra, sizeof(quint64));
        put<quint64>(extra, offset);
    }
    QByteArray header;
    put<quint32>(header, kCentralSignature);
    put<quint16>(header, kMadeByUnix);
    putCommon(header, entry, fields);
    put<quint16>(header, extra.size());
    put<quint16>(header, 0); // comment
    put<quint16>(header, 0); // disk
    put<quint16>(header, 0); // internal attributes
    put<quint32>(header, qint64{entry.mode} << 16);
    put<quint32>(header, std::min(offset, kIn64));
    return header + entry.name + extra;
}

QByteArray endOfDirectory64(qint64 count, qint64 size, qint64 offset)
{
    QByteArray end;
    put<quint32>(end, kEnd64Signature);
    put<quint64>(end, 44); // what follows
    put<quint16>(end, kMadeByUnix);
    put<quint16>(end, kVersion);
    put<quint32>(end, 0);
    put<quint32>(end, 0);
    put<quint64>(end, count);
    put<quint64>(end, count);
    put<quint64>(end, size);
    put<quint64>(end, offset);
    put<quint32>(end, kLocator64Signature);
    put<quint32>(end, 0);
    put<quint64>(end, offset + size);
    put<quint32>(end, 1);
    return end;
}

QByteArray endOfDirectory(qint64 count, qint64 size, qint64 offset)
{
    QByteArray end;
    if (count >= kIn64Count || offset >= kIn64)
        end = endOfDirectory64(count, size, offset);
    put<quint32>(end, kEndSignature);
    put<quint16>(end, 0);
    put<quint16>(end, 0);
    put<quint16>(end, std::min(count, kIn64Count));
    put<quint16>(end, std::min(count, kIn64Count));
    put<quint32>(end, size);
    put<quint32>(end, std::min(offset, kIn64));
    put<quint16>(end, 0); // comment
    return end;
}

} // namespace

ZipWriter::ZipWriter(const std::filesystem::path &path)
    : m_file(path)
    , m_good(m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
{
}

void ZipWriter::write(const QByteArray &bytes)
{
    m_good = m_good && m_file.write(bytes) == bytes.size();
}

void ZipWriter::add(const ZipEntry &entry)
{
    const bool deflated = entry.deflated && entry.padding == 0 && !entry.data.isEmpty();
    const QByteArray packed = deflated ? deflate(entry.data) : entry.data;
    quint32 checksum = checksumOf(entry.data);
    for (qint64 left = entry.padding; left > 0; left -= kBlock)
        checksum = checksumOf(left < kBlock ? noise().first(left) : noise(), checksum);
    const Fields fields{static_cast<quint16>(deflated ? 8 : 0), entry.damaged ? ~checksum : checksum,
                        packed.size() + entry.padding, entry.data.size() + entry.padding};
    m_directory += centralHeader(entry, fields, m_file.pos());
    ++m_count;
    QByteArray header;
    put<quint32>(header, kLocalSignature);
    putCommon(header, entry, fields);
    put<quint16>(header, 0); // extra
    write(header + entry.name);
    write(packed);
    for (qint64 left = entry.padding; left > 0; left -= kBlock)
        write(left < kBlock ? noise().first(left) : noise());
}

bool ZipWriter::finish()
{
    const qint64 offset = m_file.pos();
    write(m_directory);
    write(endOfDirectory(m_count, m_directory.size(), offset));
    m_good = m_good && m_file.flush();
    m_file.close();
    return m_good;
}

QByteArray infoPropertyList(const IPAContent &content)
{
    const std::unique_ptr<void, void (*)(void *)> info(plist_new_dict(), plist_free);
    const auto set = [&](const char *key, const QString &value) {
        plist_dict_set_item(info.get(), key, plist_new_string(value.toUtf8().constData()));
    };
    set("CFBundleIdentifier", content.id);
    set("CFBundleExecutable", content.executable);
    set("CFBundleName", content.name);
    set("CFBundleShortVersionString", content.version);
    char *bytes = nullptr;
    uint32_t size = 0;
    if (content.binaryInfo)
        plist_to_bin(info.get(), &bytes, &size);
    else
        plist_to_xml(info.get(), &bytes, &size);
    const std::unique_ptr<char, void (*)(void *)> owner(bytes, std::free);
    return QByteArray(bytes, static_cast<qsizetype>(size));
}

QList<ZipEntry> entriesOfIPA(const IPAContent &content)
{
    const QByteArray app = "Payload/" + content.name.toUtf8() + ".app/";
    QList<ZipEntry> entries{
        {.name = "Payload/", .mode = 040755},
        {.name = app, .mode = 040755},
        {.name = app + "Info.plist", .data = infoPropertyList(content)},
        {.name = app + content.executable.toUtf8(), .data = "\xCF\xFA\xED\xFE", .mode = 0100755},
    };
    for (qint64 left = content.padding; left > 0; left -= kMaxPaddingOfEntry)
        entries.append({.name = app + "data-" + QByteArray::number(entries.size()) + ".bin",
                        .padding = std::min(left, kMaxPaddingOfEntry)});
    return entries;
}

bool writeIPA(const std::filesystem::path &path, const IPAContent &content)
{
    return writeZip(path, entriesOfIPA(content));
}

bool writeZip(const std::filesystem::path &path, const QList<ZipEntry> &entries)
{
    ZipWriter writer(path);
    for (const ZipEntry &entry : entries)
        writer.add(entry);
    return writer.finish();
}
