// Virtual phones, and runs of the device tool against them. Everything here belongs to the test's main
// thread.
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>
#include <memory>

/// The identifiers that phone() gives: FirstPhone is the default.
inline const QString FirstPhone = QStringLiteral("00008DE0-000000000000001A");
inline const QString SecondPhone = QStringLiteral("00008DE0-000000000000002B");

/// The configuration of a sound phone with two apps; `changes` replace members.
QJsonObject phone(const QJsonObject &changes = {}, const QString &id = FirstPhone);
/// The same, with faults.
QJsonObject faultyPhone(const QJsonObject &faults);

/// How a run of the tool ended.
struct ToolRun
{
    int status = -1; ///< exit status; -1 when it crashed or had to be killed
    QJsonObject reply;
    QByteArray output; ///< all of standard output
    QByteArray diagnostics;
    std::chrono::milliseconds time{};

    QString error() const { return reply[QLatin1StringView("error")].toString(); }
    /// One line of output with one JSON object, and a status that goes with it.
    bool isWellFormed() const;
};

enum class Limits { Shipped, Short };

/// A running virtual_phone. It ends with the object.
class VirtualPhones
{
public:
    explicit VirtualPhones(const QJsonArray &phones, bool mute = false);
    ~VirtualPhones();
    VirtualPhones(const VirtualPhones &) = delete;
    VirtualPhones &operator=(const VirtualPhones &) = delete;

    /// False when it did not start; then `problem` says why.
    bool isReady() const { return m_ready; }
    QByteArray problem() { return m_process.readAllStandardError(); }

    /// Runs the tool to its end; kills it when it exceeds every limit.
    ToolRun run(const QStringList &arguments, Limits limits = Limits::Shipped);
    /// Closes the service to the runs that follow, for root too.
    void forbid();
    /// Starts it and leaves the rest to the caller. What is read from it first are its diagnostics.
    std::unique_ptr<QProcess> start(const QStringList &arguments, Limits limits = Limits::Shipped);
    /// The same, not started yet.
    std::unique_ptr<QProcess> prepare(const QStringList &arguments, Limits limits = Limits::Shipped);
    /// From one moment to the next nobody is there any more.
    void vanish();

    QString filePath(const QString &name) const { return m_folder.filePath(name); }
    /// Writes an IPA of this app into the folder; its path.
    QString makeIPA(const QString &id, const QString &version, qint64 padding = 0);
    /// True when this computer has keys for the first phone.
    bool isPaired() const;
    /// The names in the staging folder of the first phone.
    QStringList staged() const;

private:
    QTemporaryDir m_folder;
    QProcess m_process;
    bool m_ready = false;
    bool m_forbidden = false;
};

/// Waits for a process that start() gave and reads what it printed.
ToolRun finish(QProcess &process);
