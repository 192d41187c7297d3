// The file service: the folder of uploads, through the cable.
#include "afc.h"

#include "channel.h"
#include "plist_port.h"
#include "services.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kMaxRequest = 1 << 20; // but for what is written into files
constexpr qint64 kBlock = 512 << 10;
constexpr qint64 kMaxRead = 8 << 20;
constexpr int kBlockSize = 4096;
constexpr quint64 kNanoseconds = 1'000'000'000;

// What a client may ask to open a file for, from 1 on.
constexpr int kOpenModes[] = {O_RDONLY,
                              O_RDWR | O_CREAT,
                              O_WRONLY | O_CREAT | O_TRUNC,
                              O_RDWR | O_CREAT | O_TRUNC,
                              O_WRONLY | O_APPEND | O_CREAT,
                              O_RDWR | O_APPEND | O_CREAT};

class OpenFile
{
public:
    explicit OpenFile(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~OpenFile() { ::close(m_descriptor); }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    int descriptor() const { return m_descriptor; }

    qint64 size() const
    {
        struct stat info = {};
        return ::fstat(m_descriptor, &info) == 0 ? info.st_size : 0;
    }

private:
    const int m_descriptor;
};

/// Names and values, each ended by a zero byte.
QByteArray pairs(const QList<std::pair<const char *, QByteArray>> &values)
{
    QByteArray text;
    for (const auto &[name, value] : values)
        text.append(name).append('\0').append(value).append('\0');
    return text;
}

class Afc
{
public:
    explicit Afc(const Connection &connection)
        : m_connection(connection)
        , m_channel(*connection.channel)
    {
    }

    void run();

private:
    struct Answer
    {
        AfcOperation operation = AfcOperation::Status;
        QByteArray own;
        QByteArray payload;

        static Answer status(AfcStatus status)
        {
            return {AfcOperation::Status, afcNumber(static_cast<quint64>(status)), {}};
        }
        static Answer ofCall(bool worked) { return status(worked ? AfcStatus::Success : afcStatusOf(errno)); }
        static Answer data(const QByteArray &data) { return {AfcOperation::Data, {}, data}; }
    };

    bool send(quint64 number, const Answer &answer);
    Answer handle(AfcOperation operation, const QByteArray &body);
    Answer onPath(AfcOperation operation, const QByteArray &body);
    Answer onFile(AfcOperation operation, const QByteArray &body);
    Answer readDirectory(const QString &file) const;
    Answer fileInfo(const QByteArray &file) const;
    Answer deviceInfo() const;
    Answer open(const QString &file, quint64 mode);
    Answer truncate(const QByteArray &file, quint64 size) const;
    Answer rename(const QByteArray &body) const;
    Answer removePath(const QByteArray &file) const;
    Answer readFile(const OpenFile &file, quint64 size) const;
    Answer seek(const OpenFile &file, const QByteArray &body) const;
    Answer resize(const OpenFile &file, quint64 size) const;
    std::optional<Answer> writeFile(qint64 bodySize);
    AfcStatus store(const OpenFile &file, qint64 size);
    OpenFile *find(quint64 handle) const;

    const Connection &m_connection;
    Channel &m_channel;
    std::map<quint64, std::unique_ptr<OpenFile>> m_files;
    quint64 m_lastHandle = 0;
    qint64 m_uploaded = 0;
    std::vector<char> m_block;
};

void Afc::run()
{
    while (const auto header = readAfcHeader(m_channel)) {
        std::optional<Answer> answer;
        if (header->operation == AfcOperation::FileWrite) {
            answer = writeFile(header->bodySize);
        } else if (header->bodySize <= kMaxRequest) {
            if (const auto body = m_channel.read(header->bodySize))
                answer = handle(header->operation, *body);
        }
        if (!answer || !send(header->number, *answer))
            return;
    }
}

bool Afc::send(quint64 number, const Answer &answer)
{
    auto blow = m_connection.damager ? m_connection.damager->next(Layer::Afc) : std::nullopt;
    return sendFrame(m_channel, afcPacket(answer.operation, number, answer.own, answer.payload), kAfcFraming,
                     blow);
}

Afc::Answer Afc::handle(AfcOperation operation, const QByteArray &body)
{
    switch (operation) {
    case AfcOperation::GetDeviceInfo:
        return deviceInfo();
    case AfcOperation::RenamePath:
        return rename(body);
    case AfcOperation::ReadDirectory:
    case AfcOperation::RemovePath:
    case AfcOperation::RemovePathAndContents:
    case AfcOperation::MakeDirectory:
    case AfcOperation::GetFileInfo:
    case AfcOperation::Truncate:
    case AfcOperation::FileOpen:
    case AfcOperation::SetFileModificationTime:
        return onPath(operation, body);
    case AfcOperation::FileRead:
    case AfcOperation::FileSeek:
    case AfcOperation::FileTell:
    case AfcOperation::FileClose:
    case AfcOperation::FileSetSize:
        return onFile(operation, body);
    default:
        return Answer::status(AfcStatus::NotSupported);
    }
}

Afc::Answer Afc::onPath(AfcOperation operation, const QByteArray &body)
{
    // Before the path stands a number, for those operations that have one.
    const bool numbered = operation == AfcOperation::FileOpen || operation == AfcOperation::Truncate ||
                          operation == AfcOperation::SetFileModificationTime;
    const QByteArray text = numbered ? body.mid(sizeof(quint64)) : body;
    const auto file = m_connection.phone->media().resolve(QString::fromUtf8(text.constData()));
    if (!file)
        return Answer::status(AfcStatus::PermissionDenied);
    const QByteArray name = QFile::encodeName(*file);
    switch (operation) {
    case AfcOperation::ReadDirectory:
        return readDirectory(*file);
    case AfcOperation::RemovePath:
        return removePath(name);
    case AfcOperation::RemovePathAndContents:
        return Answer::status(m_connection.phone->media().removeAll(*file) ? AfcStatus::Success
                                                                           : AfcStatus::ObjectNotFound);
    case AfcOperation::MakeDirectory:
        return Answer::status(QDir().mkpath(*file) ? AfcStatus::Success : AfcStatus::IoError);
    case AfcOperation::GetFileInfo:
        return fileInfo(name);
    case AfcOperation::FileOpen:
        return open(*file, afcNumberAt(body, 0));
    case AfcOperation::Truncate:
        return truncate(name, afcNumberAt(body, 0));
    default:
        return Answer::status(AfcStatus::Success); // modification times are nobody's concern
    }
}

Afc::Answer Afc::onFile(AfcOperation operation, const QByteArray &body)
{
    const quint64 handle = afcNumberAt(body, 0);
    OpenFile *file = find(handle);
    if (!file)
        return Answer::status(AfcStatus::InvalidArgument);
    switch (operation) {
    case AfcOperation::FileRead:
        return readFile(*file, afcNumberAt(body, 1));
    case AfcOperation::FileSeek:
        return seek(*file, body);
    case AfcOperation::FileTell:
        return {AfcOperation::FileTellResult,
                afcNumber(static_cast<quint64>(::lseek(file->descriptor(), 0, SEEK_CUR))),
                {}};
    case AfcOperation::FileSetSize:
        return resize(*file, afcNumberAt(body, 1));
    default:
        m_files.erase(handle);
        return Answer::status(AfcStatus::Success);
    }
}

Afc::Answer Afc::readDirectory(const QString &file) const
{
    if (!QFileInfo(file).isDir())
        return Answer::status(AfcStatus::ObjectNotFound);
    QByteArray names;
    for (const QString &name : QDir(file).entryList(QDir::AllEntries | QDir::Hidden))
        names.append(name.toUtf8()).append('\0');
    return Answer::data(names);
}

Afc::Answer Afc::fileInfo(const QByteArray &file) const
{
    struct stat info = {};
    if (::lstat(file.constData(), &info) != 0)
        return Answer::ofCall(false);
    const QByteArray time = QByteArray::number(static_cast<quint64>(info.st_mtime) * kNanoseconds);
    return Answer::data(pairs({{"st_size", QByteArray::number(static_cast<qint64>(info.st_size))},
                               {"st_blocks", QByteArray::number(static_cast<qint64>(info.st_blocks))},
                               {"st_nlink", QByteArray::number(static_cast<quint64>(info.st_nlink))},
                               {"st_ifmt", S_ISDIR(info.st_mode) ? "S_IFDIR" : "S_IFREG"},
                               {"st_mtime", time},
                               {"st_birthtime", time}}));
}

Afc::Answer Afc::deviceInfo() const
{
    return Answer::data(pairs({{"Model", m_connection.config->productType.toUtf8()},
                               {"FSTotalBytes", QByteArray::number(m_connection.config->capacity)},
                               {"FSFreeBytes", QByteArray::number(m_connection.phone->freeBytes())},
                               {"FSBlockSize", QByteArray::number(kBlockSize)}}));
}

Afc::Answer Afc::open(const QString &file, quint64 mode)
{
    if (mode < 1 || mode > std::size(kOpenModes))
        return Answer::status(AfcStatus::InvalidArgument);
    const int flags = kOpenModes[mode - 1];
    const qint64 before = flags & O_TRUNC ? QFileInfo(file).size() : 0;
    const int descriptor = ::open(QFile::encodeName(file).constData(), flags | O_CLOEXEC, 0644);
    if (descriptor < 0)
        return Answer::ofCall(false);
    m_connection.phone->media().grew(-before);
    m_files[++m_lastHandle] = std::make_unique<OpenFile>(descriptor);
    return {AfcOperation::FileOpenResult, afcNumber(m_lastHandle), {}};
}

Afc::Answer Afc::truncate(const QByteArray &file, quint64 size) const
{
    const int descriptor = ::open(file.constData(), O_WRONLY | O_CLOEXEC);
    return descriptor < 0 ? Answer::ofCall(false) : resize(OpenFile(descriptor), size);
}

Afc::Answer Afc::rename(const QByteArray &body) const
{
    const Media &media = m_connection.phone->media();
    const qsizetype second = body.indexOf('\0') + 1;
    const auto from = media.resolve(QString::fromUtf8(body.constData()));
    const auto to = media.resolve(QString::fromUtf8(body.constData() + second));
    if (!from || !to)
        return Answer::status(AfcStatus::PermissionDenied);
    return Answer::ofCall(
        ::rename(QFile::encodeName(*from).constData(), QFile::encodeName(*to).constData()) == 0);
}

Afc::Answer Afc::removePath(const QByteArray &file) const
{
    struct stat info = {};
    const bool removed = ::lstat(file.constData(), &info) == 0 && ::remove(file.constData()) == 0;
    if (removed && S_ISREG(info.st_mode))
        m_connection.phone->media().grew(-info.st_size);
    return Answer::ofCall(removed);
}

Afc::Answer Afc::readFile(const OpenFile &file, quint64 size) const
{
    QByteArray data(static_cast<qsizetype>(std::min<quint64>(size, kMaxRead)), Qt::Uninitialized);
    const ssize_t got = ::read(file.descriptor(), data.data(), static_cast<size_t>(data.size()));
    if (got < 0)
        return Answer::ofCall(false);
    data.truncate(got);
    return Answer::data(data);
}

Afc::Answer Afc::seek(const OpenFile &file, const QByteArray &body) const
{
    const auto whence = static_cast<int>(afcNumberAt(body, 1)); // numbered as in C
    const auto offset = static_cast<qint64>(afcNumberAt(body, 2));
    return Answer::ofCall(::lseek(file.descriptor(), offset, whence) >= 0);
}

Afc::Answer Afc::resize(const OpenFile &file, quint64 size) const
{
    const qint64 growth = static_cast<qint64>(size) - file.size();
    if (growth > m_connection.phone->freeBytes())
        return Answer::status(AfcStatus::NoSpaceLeft);
    const bool worked = ::ftruncate(file.descriptor(), static_cast<off_t>(size)) == 0;
    if (worked)
        m_connection.phone->media().grew(growth);
    return Answer::ofCall(worked);
}

OpenFile *Afc::find(quint64 handle) const
{
    const auto found = m_files.find(handle);
    return found == m_files.end() ? nullptr : found->second.get();
}

/// Takes the payload in blocks: it may be as large as the file. Nothing when the connection has ended.
std::optional<Afc::Answer> Afc::writeFile(qint64 bodySize)
{
    const auto handle = m_channel.read(sizeof(quint64));
    if (!handle || bodySize < handle->size())
        return std::nullopt;
    const OpenFile *file = find(afcNumberAt(*handle, 0));
    AfcStatus status = file ? AfcStatus::Success : AfcStatus::InvalidArgument;
    m_block.resize(kBlock);
    const qint64 rate = m_connection.config->uploadRate;
    const auto limit = m_connection.config->faults.dropUploadAfter;
    for (qint64 left = bodySize - handle->size(); left > 0;) {
        const qint64 size = std::min(left, kBlock);
        if (!m_channel.read(m_block.data(), size))
            return std::nullopt;
        if (rate > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(size * 1'000'000 / rate));
        if (status == AfcStatus::Success)
            status = store(*file, size);
        m_uploaded += size;
        left -= size;
        if (limit && m_uploaded >= *limit) {
            m_connection.drop();
            return std::nullopt;
        }
    }
    return Answer::status(status);
}

/// Appends the first `size` bytes of the block; of uploads that are not kept, their size.
AfcStatus Afc::store(const OpenFile &file, qint64 size)
{
    if (size > m_connection.phone->freeBytes())
        return AfcStatus::NoSpaceLeft;
    const qint64 before = file.size();
    if (m_connection.config->keepUploads) {
        for (qint64 done = 0; done < size;) {
            const ssize_t written =
                ::write(file.descriptor(), m_block.data() + done, static_cast<size_t>(size - done));
            if (written < 0 && errno != EINTR)
                return afcStatusOf(errno);
            done += std::max<ssize_t>(written, 0);
        }
    } else {
        const off_t end = ::lseek(file.descriptor(), size, SEEK_CUR);
        if (end > before && ::ftruncate(file.descriptor(), end) != 0)
            return afcStatusOf(errno);
    }
    m_connection.phone->media().grew(file.size() - before);
    return AfcStatus::Success;
}

} // namespace

void serveAfc(const Connection &connection)
{
    if (connection.mute("afc"))
        connection.channel->swallow();
    else
        Afc(connection).run();
}
