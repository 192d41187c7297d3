// A running virtual phone for a test, and clients that were not written for it.
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <libimobiledevice/libimobiledevice.h>

#include <memory>

inline const QString kUdid = QStringLiteral("00008DE0-000000000000001A");

/// A sound phone with two apps of the user and one of the system; `changes` replace members.
QJsonObject soundPhone(const QJsonObject &changes = {});

struct ProgramRun
{
    int status = -1;   ///< -1: crashed, or had to be killed
    QByteArray output; ///< standard output and error
};

/// Main thread only. The library of this process is led to the phones too.
class PluggedPhones
{
public:
    explicit PluggedPhones(const QJsonArray &phones);
    ~PluggedPhones();
    PluggedPhones(const PluggedPhones &) = delete;
    PluggedPhones &operator=(const PluggedPhones &) = delete;

    bool isReady() const { return m_ready; }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 processId() const { return m_process.processId(); }
    /// Changes the configuration and has it read; what the phone says to that.
    QByteArray change(const QByteArray &config);
    QByteArray change(const QJsonArray &phones);
    void restart();
    /// Runs a program of the field on the first phone: `-u` and its identifier are added.
    ProgramRun run(const QString &program, QStringList arguments) const;

    QString filePath(const QString &name) const { return m_folder.filePath(name); }
    QString socketPath() const { return filePath(QStringLiteral("socket")); }

private:
    bool write(const QByteArray &config) const;
    bool awaitLine(const QByteArray &line);

    QTemporaryDir m_folder;
    QProcess m_process;
    QByteArray m_said;
    bool m_ready = false;
};

struct DeviceDeleter
{
    void operator()(idevice_t device) const { idevice_free(device); }
};
/// The first phone, through the library; null when it is not there.
using Device = std::unique_ptr<std::remove_pointer_t<idevice_t>, DeviceDeleter>;
Device openDevice();
