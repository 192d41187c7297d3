#include "staged_upload.h"

#include "deadlines.h"
#include "diagnostics.h"
#include "staging_names.h"

#include <unistd.h>

#include <ctime>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kFolder = "PublicStaging";
// Larger blocks gain nothing, and every one of them is held twice: here and, encrypted, in the library.
constexpr qint64 kBlock = 1 << 20;

} // namespace

StagedUpload::StagedUpload(FileClient &client, Watch &watch)
    : m_client(client)
    , m_watch(watch)
    , m_path(QByteArray(kFolder) + '/' + StagingName(std::time(nullptr), ::getpid()))
{
}

StagedUpload::~StagedUpload()
{
    if (!m_created)
        return;
    m_watch.step(CurrentDeadlines().goodbye);
    Diagnose(u"remove the upload: %1"_s.arg(afc_remove_path(m_client.get(), m_path.constData())));
}

bool StagedUpload::send(const QString &file, Failure *failure)
{
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return Fail(failure, FailureOf(Fault::UnreadableFile));
    if (!prepareFolder(failure))
        return false;
    removeAbandoned();
    const auto target = create(failure);
    if (!target)
        return false;
    const bool sent = sendContents(source, *target, failure);
    m_watch.step(CurrentDeadlines().step);
    const int code = afc_file_close(m_client.get(), *target);
    Diagnose(u"close the upload: %1"_s.arg(code));
    return sent && (code == AFC_E_SUCCESS || Fail(failure, FileServiceFailure(code)));
}

bool StagedUpload::prepareFolder(Failure *failure)
{
    m_watch.step(CurrentDeadlines().step);
    char **facts = nullptr;
    int code = afc_get_file_info(m_client.get(), kFolder, &facts);
    afc_dictionary_free(facts);
    if (code == AFC_E_OBJECT_NOT_FOUND) {
        m_watch.step(CurrentDeadlines().step);
        code = afc_make_directory(m_client.get(), kFolder);
    }
    Diagnose(u"staging folder: %1"_s.arg(code));
    return code == AFC_E_SUCCESS || Fail(failure, FileServiceFailure(code));
}

// Best effort: what stays costs room, not correctness.
void StagedUpload::removeAbandoned()
{
    m_watch.step(CurrentDeadlines().step);
    char **names = nullptr;
    if (afc_read_directory(m_client.get(), kFolder, &names) != AFC_E_SUCCESS || !names)
        return;
    for (char **name = names; *name; ++name) {
        if (!IsAbandonedUpload(*name, std::time(nullptr)))
            continue;
        m_watch.step(CurrentDeadlines().step);
        const QByteArray path = QByteArray(kFolder) + '/' + *name;
        Diagnose(u"remove an old upload: %1"_s.arg(afc_remove_path(m_client.get(), path.constData())));
    }
    afc_dictionary_free(names);
}

std::optional<quint64> StagedUpload::create(Failure *failure)
{
    m_watch.step(CurrentDeadlines().step);
    m_created = true; // also when the answer is lost
    std::uint64_t target = 0;
    const int code = afc_file_open(m_client.get(), m_path.constData(), AFC_FOPEN_WRONLY, &target);
    Diagnose(u"create the upload: %1"_s.arg(code));
    if (code != AFC_E_SUCCESS) {
        Fail(failure, FileServiceFailure(code));
        return std::nullopt;
    }
    return target;
}

bool StagedUpload::sendContents(QFile &source, quint64 target, Failure *failure)
{
    const qint64 size = source.size();
    QByteArray block(kBlock, Qt::Uninitialized);
    int percent = -1;
    for (qint64 sent = 0; sent < size;) {
        if (const auto reason = m_watch.stopReason())
            return Fail(failure, FailureOf(*reason));
        const qint64 length = source.read(block.data(), std::min(kBlock, size - sent));
        if (length <= 0)
            return Fail(failure, FailureOf(Fault::UnreadableFile));
        m_watch.step(CurrentDeadlines().step);
        std::uint32_t written = 0; // on a failure it tells what was meant to be written
        const int code = afc_file_write(m_client.get(), target, block.constData(),
                                        static_cast<std::uint32_t>(length), &written);
        if (code != AFC_E_SUCCESS)
            return Fail(failure, FileServiceFailure(code));
        if (written != length)
            return Fail(failure, FailureOf(Fault::BadReply));
        sent += length;
        if (const int now = static_cast<int>(sent * 100 / size); now != percent)
            ReportProgress("upload"_L1, percent = now);
    }
    return true;
}
