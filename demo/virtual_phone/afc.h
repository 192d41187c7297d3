// The packets of the file service.
#pragma once

#include "damage.h"

#include <QByteArray>
#include <QtGlobal>

#include <optional>

class Channel;

enum class AfcOperation : quint64 {
    Status = 0x01,
    Data = 0x02,
    ReadDirectory = 0x03,
    Truncate = 0x07,
    RemovePath = 0x08,
    MakeDirectory = 0x09,
    GetFileInfo = 0x0A,
    GetDeviceInfo = 0x0B,
    FileOpen = 0x0D,
    FileOpenResult = 0x0E,
    FileRead = 0x0F,
    FileWrite = 0x10,
    FileSeek = 0x11,
    FileTell = 0x12,
    FileTellResult = 0x13,
    FileClose = 0x14,
    FileSetSize = 0x15,
    RenamePath = 0x18,
    SetFileModificationTime = 0x1E,
    RemovePathAndContents = 0x22,
};

enum class AfcStatus : quint64 {
    Success = 0,
    UnknownError = 1,
    InvalidArgument = 7,
    ObjectNotFound = 8,
    ObjectIsDirectory = 9,
    PermissionDenied = 10,
    NotSupported = 15,
    ObjectExists = 16,
    NoSpaceLeft = 18,
    IoError = 20,
    DirectoryNotEmpty = 33,
};

/// The status that tells of a failed system call.
AfcStatus afcStatusOf(int errorNumber);

/// The beginning of a packet.
struct AfcHeader
{
    AfcOperation operation{};
    quint64 number = 0;  ///< a reply has the number of its request
    qint64 bodySize = 0; ///< bytes that follow: the operation's own and the payload
};

/// Nothing when the client has gone or sends no such packet.
std::optional<AfcHeader> readAfcHeader(Channel &channel);
/// A packet with `own` data of its operation and a `payload`.
QByteArray afcPacket(AfcOperation operation, quint64 number, const QByteArray &own,
                     const QByteArray &payload = {});
constexpr Framing kAfcFraming{
    .header = 40, .lengthAt = 8, .lengthBytes = 8, .bigEndian = false, .typeAt = 32};

/// Numbers of 64 bits, as the operations pass them; 0 when there are none at that place.
QByteArray afcNumber(quint64 number);
quint64 afcNumberAt(const QByteArray &body, qsizetype index);
