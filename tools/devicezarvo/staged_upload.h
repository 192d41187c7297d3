// An IPA on its way into the phone: a file in the folder that the installation service takes apps from.
#pragma once

#include "phone_session.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <optional>

/// Owns the file on the phone: the destructor removes it, also after an installation, where most phones have
/// done so themselves. Everything blocks; one thread.
class StagedUpload
{
public:
    /// Both outlive the upload.
    StagedUpload(FileClient &client, Watch &watch);
    ~StagedUpload();
    StagedUpload(const StagedUpload &) = delete;
    StagedUpload &operator=(const StagedUpload &) = delete;

    /// Copies the file to the phone and reports the progress.
    bool send(const QString &file, Failure *failure = nullptr);

    /// Where the phone finds it.
    const QByteArray &path() const { return m_path; }

private:
    bool prepareFolder(Failure *failure);
    void removeAbandoned();
    std::optional<quint64> create(Failure *failure);
    bool sendContents(QFile &source, quint64 target, Failure *failure);

    FileClient &m_client;
    Watch &m_watch;
    QByteArray m_path;
    bool m_created = false;
};
