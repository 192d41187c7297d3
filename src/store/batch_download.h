// Downloading all apps of a phone, with a report. Any thread.
#pragma once

#include "core/error.h"
#include "core/job.h"
#include "device/device_records.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// What became of one app of a batch.
struct BatchEntry
{
    enum class Status { NotAttempted, Downloaded, Failed, Cancelled };

    QString name;
    QString bundleID;
    QString installedVersion;
    Status status = Status::NotAttempted;
    QString file = {};   ///< name of the saved IPA; only of a downloaded one
    QString reason = {}; ///< why not; only of a failed or cancelled one
};

/// One entry for each app, in their order, nothing attempted yet.
QList<BatchEntry> NewBatchReport(const QList<AppRow> &apps);

/// The outcome of one attempt: `file` is the path of the saved IPA, or empty when there is none; then
/// `failure` (its message may be empty) says why and what to do about it, and `cancelled` whether the user
/// did it.
void NoteOutcome(BatchEntry &entry, const QString &file, const Error &failure, bool cancelled);

/// The report as indented JSON: an array with one object an entry. It names neither store identifiers nor
/// accounts.
QByteArray BatchReportJSON(const QList<BatchEntry> &entries);

/// The closing line with the numbers of saved and of other apps among those that were attempted.
QString BatchSummary(const QList<BatchEntry> &entries);

/// Writes `report.json` in `folder`: whole or not at all, readable by its owner only from its first byte on,
/// and on the disk when this returns, where that can be had. On failure a former report stays as it was.
/// Blocks.
bool WriteBatchReport(const QString &folder, const QByteArray &report, Error *error = nullptr);

/// Where the files of a batch are, and its closing line.
struct BatchOutcome
{
    QString folder;
    QString summary;
};

/// Downloads `all` one after another into a new folder within `parent`, whose report.json is written after
/// each. An app that cannot be had is noted and does not end the batch, unless the store wants a new sign-in.
/// Fails when the folder cannot be made or the report not be written. Blocks.
std::optional<BatchOutcome> downloadEach(Job &job, const QList<AppRow> &all, const QString &parent,
                                         bool exact, Error *error = nullptr);
