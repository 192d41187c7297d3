#include "afc.h"
#include "channel.h"

#include <QtEndian>

#include <cerrno>

namespace {

const QByteArray kMagic = QByteArrayLiteral("CFA6LPAA");
constexpr quint64 kHeaderSize = 40;
constexpr quint64 kMaxPacket = quint64{1} << 40;

quint64 numberIn(const QByteArray &bytes, qsizetype at)
{
    return qFromLittleEndian<quint64>(bytes.constData() + at);
}

} // namespace

AfcStatus afcStatusOf(int errorNumber)
{
    switch (errorNumber) {
    case ENOENT:
    case ENOTDIR:
        return AfcStatus::ObjectNotFound;
    case EISDIR:
        return AfcStatus::ObjectIsDirectory;
    case EACCES:
    case EPERM:
        return AfcStatus::PermissionDenied;
    case EEXIST:
        return AfcStatus::ObjectExists;
    case ENOSPC:
    case EDQUOT:
        return AfcStatus::NoSpaceLeft;
    case ENOTEMPTY:
        return AfcStatus::DirectoryNotEmpty;
    case EINVAL:
    case EBADF:
    case ENAMETOOLONG:
        return AfcStatus::InvalidArgument;
    default:
        return AfcStatus::IoError;
    }
}

std::optional<AfcHeader> readAfcHeader(Channel &channel)
{
    const auto header = channel.read(kHeaderSize);
    if (!header || !header->startsWith(kMagic))
        return std::nullopt;
    const quint64 whole = numberIn(*header, 8);
    if (whole < kHeaderSize || whole > kMaxPacket)
        return std::nullopt;
    return AfcHeader{static_cast<AfcOperation>(numberIn(*header, 32)), numberIn(*header, 24),
                     static_cast<qint64>(whole - kHeaderSize)};
}

QByteArray afcPacket(AfcOperation operation, quint64 number, const QByteArray &own, const QByteArray &payload)
{
    const quint64 first = kHeaderSize + static_cast<quint64>(own.size());
    return kMagic + afcNumber(first + static_cast<quint64>(payload.size())) + afcNumber(first) +
           afcNumber(number) + afcNumber(static_cast<quint64>(operation)) + own + payload;
}

QByteArray afcNumber(quint64 number)
{
    QByteArray bytes(sizeof number, Qt::Uninitialized);
    qToLittleEndian(number, bytes.data());
    return bytes;
}

quint64 afcNumberAt(const QByteArray &body, qsizetype index)
{
    const qsizetype at = index * static_cast<qsizetype>(sizeof(quint64));
    return body.size() >= at + static_cast<qsizetype>(sizeof(quint64)) ? numberIn(body, at) : 0;
}
