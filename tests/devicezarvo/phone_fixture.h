// Virtual phones, runs of the device tool and of the field's programs against them, and the field's library
// within this process. Everything here belongs to the test's main thread.
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>

#include <chrono>
#include <memory>

/// The identifiers that phone() gives: FirstPhone is the default.
inline const QString FirstPhone = QStringLiteral("00008DE0-000000000000001A");
inline const QString SecondPhone = QStringLiteral("00008DE0-000000000000002B");

/// The configuration of a sound phone with an app of the user and one of the system. `changes` replace
/// members: JSON without the outer braces.
QJsonObject phone(const QByteArray &changes = {}, const QString &id = FirstPhone);
/// The same, with faults.
QJsonObject faultyPhone(const QByteArray &faults, const QString &id = FirstPhone);

/// How a program ended.
struct ToolRun
{
    int status = -1; ///< exit status; -1 when it crashed or had to be killed
    QJsonObject reply;
    QByteArray output; ///< all of standard output
    QByteArray diagnostics;

    QString error() const { return reply[QLatin1StringView("error")].toString(); }
    /// One line of output with one JSON object, and a status that goes with it.
    bool isWellFormed() const;
};

enum class Limits { Shipped, Short };

/// A running virtual_phone. It ends with the object, and must end well.
class VirtualPhones
{
public:
    explicit VirtualPhones(const QJsonArray &phones = {phone()}, bool mute = false);
    ~VirtualPhones();
    VirtualPhones(const VirtualPhones &) = delete;
    VirtualPhones &operator=(const VirtualPhones &) = delete;

    /// Has another configuration read: what the phone says to that.
    QByteArray change(const QJsonArray &phones);
    void restart();
    /// From one moment to the next nobody is there any more.
    void vanish();
    /// Closes the service to the runs that follow, for root too.
    void forbid();

    /// Runs the tool to its end; kills it when it exceeds every limit.
    ToolRun run(const QStringList &arguments, Limits limits = Limits::Shipped) const;
    /// Runs a program of the field on the first phone: `-u` and its identifier are added. All that it prints.
    QByteArray print(const QString &program, const QStringList &arguments) const;
    /// Starts the tool and leaves the rest to the caller. What is read from it first are its diagnostics.
    std::unique_ptr<QProcess> start(const QStringList &arguments, Limits limits = Limits::Shipped) const;
    /// The same, not started yet.
    std::unique_ptr<QProcess> prepare(const QStringList &arguments, Limits limits = Limits::Shipped) const;

    QString filePath(const QString &name) const { return m_folder.filePath(name); }
    /// Writes an IPA of this app into the folder; its path.
    QString makeIPA(const QString &id, const QString &version, qint64 padding = 0) const;
    /// True when this computer has keys for the first phone.
    bool isPaired() const;
    /// The names in the staging folder of the first phone.
    QStringList staged() const;

private:
    void write(const QJsonArray &phones) const;
    QByteArray line();

    QTemporaryDir m_folder;
    QProcess m_process;
    bool m_mute;
    bool m_forbidden = false;
};

/// Waits for a process that start() gave and reads what it printed.
ToolRun finish(QProcess &process);

struct LibraryDeleter
{
    void operator()(idevice_t device) const { idevice_free(device); }
    void operator()(afc_client_t client) const { afc_client_free(client); }
};
using Device = std::unique_ptr<std::remove_pointer_t<idevice_t>, LibraryDeleter>;
using Afc = std::unique_ptr<std::remove_pointer_t<afc_client_t>, LibraryDeleter>;
/// The first phone, and its files, through the library; null when it is not there.
Device openDevice();
Afc openAfc(const Device &device);
