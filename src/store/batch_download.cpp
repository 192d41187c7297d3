#include "store/batch_download.h"

#include "core/whole_file.h"
#include "store/app_download.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <sys/stat.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView kReportName = u"report.json";
constexpr int kFolderNameDigits = 8;

QString statusName(BatchEntry::Status status)
{
    switch (status) {
    case BatchEntry::Status::NotAttempted:
        return u"not_attempted"_s;
    case BatchEntry::Status::Downloaded:
        return u"downloaded"_s;
    case BatchEntry::Status::Failed:
        return u"failed"_s;
    case BatchEntry::Status::Cancelled:
        return u"cancelled"_s;
    }
    return {};
}

QJsonObject toJSON(const BatchEntry &entry)
{
    QJsonObject object{{u"name"_s, entry.name},
                       {u"bundleID"_s, entry.bundleID},
                       {u"installedVersion"_s, entry.installedVersion},
                       {u"status"_s, statusName(entry.status)}};
    if (!entry.file.isEmpty())
        object.insert(u"file"_s, entry.file);
    if (!entry.reason.isEmpty())
        object.insert(u"reason"_s, entry.reason);
    return object;
}

// A folder of its own for each batch, so that no file of an earlier one is in the way.
std::optional<QString> makeBatchFolder(const QString &parent, Error *error)
{
    const QString digits =
        QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().first(kFolderNameDigits);
    const QString path = QDir(parent).absoluteFilePath(u"iPhone-IPA-"_s + digits);
    if (::mkdir(QFile::encodeName(path).constData(), S_IRWXU | S_IRWXG | S_IRWXO) == 0)
        return path;
    Fail(error, SystemError(u"Не удалось создать папку «%1»"_s.arg(QDir::toNativeSeparators(path)), errno));
    return std::nullopt;
}

} // namespace

QList<BatchEntry> NewBatchReport(const QList<AppRow> &apps)
{
    QList<BatchEntry> entries;
    entries.reserve(apps.size());
    for (const AppRow &app : apps)
        entries.append({app.name, app.id, app.version});
    return entries;
}

void NoteOutcome(BatchEntry &entry, const QString &file, const Error &failure, bool cancelled)
{
    if (!file.isEmpty()) {
        entry.status = BatchEntry::Status::Downloaded;
        entry.file = QFileInfo(file).fileName();
        return;
    }
    entry.status = cancelled ? BatchEntry::Status::Cancelled : BatchEntry::Status::Failed;
    entry.reason = failure.message.isEmpty() ? u"Операция отменена"_s : failure.message;
    if (!failure.advice.isEmpty())
        entry.reason += u"\n\n"_s + failure.advice;
}

QByteArray BatchReportJSON(const QList<BatchEntry> &entries)
{
    QJsonArray report;
    for (const BatchEntry &entry : entries)
        report.append(toJSON(entry));
    return QJsonDocument(report).toJson(QJsonDocument::Indented);
}

QString BatchSummary(const QList<BatchEntry> &entries)
{
    qsizetype saved = 0;
    qsizetype failed = 0;
    for (const BatchEntry &entry : entries) {
        saved += entry.status == BatchEntry::Status::Downloaded;
        failed += entry.status == BatchEntry::Status::Failed || entry.status == BatchEntry::Status::Cancelled;
    }
    return u"Сохранено: %1, ошибок: %2. Отчёт — report.json."_s.arg(saved).arg(failed);
}

bool WriteBatchReport(const QString &folder, const QByteArray &report, Error *error)
{
    return WriteWholeFile(QDir(folder).filePath(kReportName.toString()), report, error);
}

std::optional<BatchOutcome> downloadEach(Job &job, const QList<AppRow> &all, const QString &parent,
                                         bool exact, Error *error)
{
    const auto folder = makeBatchFolder(parent, error);
    if (!folder)
        return std::nullopt;
    QList<BatchEntry> report = NewBatchReport(all);
    for (qsizetype i = 0; i < all.size() && !job.isCancelled(); ++i) {
        Error failure;
        const auto file = downloadWorker(job, all[i], all[i].storeID, *folder, exact, &failure);
        NoteOutcome(report[i], file.value_or(QString()), failure, job.isCancelled());
        if (!WriteBatchReport(*folder, BatchReportJSON(report), error))
            return std::nullopt;
        if (job.isCancelled() || failure.kind == Error::Kind::SignInNeeded)
            break;
    }
    return BatchOutcome{*folder, BatchSummary(report)};
}
