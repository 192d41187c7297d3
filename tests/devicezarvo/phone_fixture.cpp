#include "devicezarvo/phone_fixture.h"

#include "ipa_writer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>

#include <libimobiledevice/afc.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <usbmuxd.h>

#include <cstdlib>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kStart = 20s;
constexpr auto kPatience = 60s; // beyond every limit of the tool that a test runs into

QProcessEnvironment environmentFor(const QString &socket)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"USBMUXD_SOCKET_ADDRESS"_s, u"UNIX:"_s + socket);
    return environment;
}

} // namespace

QJsonObject phone(const QJsonObject &changes, const QString &id)
{
    QJsonObject description{
        {"udid"_L1, id},
        {"name"_L1, u"iPhone Марии"_s},
        {"productType"_L1, u"iPhone14,5"_s},
        {"productVersion"_L1, u"17.5.1"_s},
        {"buildVersion"_L1, u"21F90"_s},
        {"serial"_L1, u"DEMO0000001A"_s},
        {"apps"_L1, QJsonArray{QJsonObject{{"CFBundleIdentifier"_L1, u"ru.primer.kot"_s},
                                           {"CFBundleDisplayName"_L1, u"Шашки Кота"_s},
                                           {"CFBundleShortVersionString"_L1, u"7.1"_s},
                                           {"ApplicationType"_L1, u"User"_s},
                                           {"iTunesMetadata"_L1, QJsonObject{{"itemId"_L1, 1700000116}}}},
                               QJsonObject{{"CFBundleIdentifier"_L1, u"com.apple.camera"_s},
                                           {"ApplicationType"_L1, u"System"_s}}}},
        {"battery"_L1, QJsonObject{{"CurrentCapacity"_L1, 82},
                                   {"IsCharging"_L1, true},
                                   {"CycleCount"_L1, 312},
                                   {"DesignCapacity"_L1, 3227},
                                   {"NominalChargeCapacity"_L1, 2937},
                                   {"Temperature"_L1, 2910}}},
    };
    for (auto member = changes.begin(); member != changes.end(); ++member)
        description[member.key()] = member.value();
    return description;
}

QJsonObject faultyPhone(const QJsonObject &faults)
{
    return phone({{"faults"_L1, faults}});
}

bool ToolRun::isWellFormed() const
{
    return !reply.isEmpty() && output.count('\n') == 1 && output.endsWith('\n') &&
           status == (reply.contains("error"_L1) ? 1 : 0);
}

VirtualPhones::VirtualPhones(const QJsonArray &phones, bool mute)
{
    QFile file(filePath(u"config.json"_s));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QJsonDocument(QJsonObject{{"mute"_L1, mute}, {"phones"_L1, phones}}).toJson());
    file.close();
    const QString socket = filePath(u"socket"_s);
    m_process.start(
        QStringLiteral(ZARVO_VIRTUAL_PHONE),
        {u"--socket"_s, socket, u"--config"_s, file.fileName(), u"--state"_s, filePath(u"state"_s)});
    // For the library within this process.
    qputenv("USBMUXD_SOCKET_ADDRESS", QFile::encodeName(u"UNIX:"_s + socket));
    while (!m_ready && m_process.waitForReadyRead(std::chrono::milliseconds(kStart).count()))
        m_ready = m_process.readAllStandardOutput().contains("ready");
}

VirtualPhones::~VirtualPhones()
{
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished();
}

void VirtualPhones::forbid()
{
    m_forbidden = ::chmod(QFile::encodeName(filePath(u"socket"_s)).constData(), 0) == 0;
}

void VirtualPhones::vanish()
{
    m_process.kill();
    m_process.waitForFinished();
}

std::unique_ptr<QProcess> VirtualPhones::prepare(const QStringList &arguments, Limits limits)
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environmentFor(filePath(u"socket"_s)));
    process->setReadChannel(QProcess::StandardError);
    if (m_forbidden) {
        // Root passes every lock unless it lays this power down.
        process->setChildProcessModifier([] { ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); });
    }
    process->setProgram(limits == Limits::Short ? QStringLiteral(ZARVO_DEVICE_TOOL_SHORT_LIMITS)
                                                : QStringLiteral(ZARVO_DEVICE_TOOL));
    process->setArguments(arguments);
    return process;
}

std::unique_ptr<QProcess> VirtualPhones::start(const QStringList &arguments, Limits limits)
{
    auto process = prepare(arguments, limits);
    process->start();
    return process;
}

ToolRun VirtualPhones::run(const QStringList &arguments, Limits limits)
{
    QElapsedTimer timer;
    timer.start();
    const auto process = start(arguments, limits);
    ToolRun run = finish(*process);
    run.time = std::chrono::milliseconds(timer.elapsed());
    return run;
}

QString VirtualPhones::makeIPA(const QString &id, const QString &version, qint64 padding)
{
    QString path = filePath(id + u".ipa"_s);
    return writeIPA(QFile::encodeName(path).toStdString(), {.id = id, .version = version, .padding = padding})
               ? path
               : QString();
}

bool VirtualPhones::isPaired() const
{
    char *record = nullptr;
    std::uint32_t length = 0;
    const bool paired = usbmuxd_read_pair_record(FirstPhone.toUtf8().constData(), &record, &length) == 0;
    std::free(record);
    return paired;
}

QStringList VirtualPhones::staged() const
{
    idevice_t device = nullptr;
    afc_client_t client = nullptr;
    char **names = nullptr;
    QStringList staged;
    if (idevice_new(&device, FirstPhone.toUtf8().constData()) == IDEVICE_E_SUCCESS &&
        afc_client_start_service(device, &client, "test") == AFC_E_SUCCESS &&
        afc_read_directory(client, "PublicStaging", &names) == AFC_E_SUCCESS) {
        for (char **name = names; *name; ++name)
            staged.append(QString::fromUtf8(*name));
    }
    afc_dictionary_free(names);
    afc_client_free(client);
    idevice_free(device);
    staged.removeAll(u"."_s);
    staged.removeAll(u".."_s);
    return staged;
}

ToolRun finish(QProcess &process)
{
    ToolRun run;
    if (process.waitForFinished(std::chrono::milliseconds(kPatience).count())) {
        run.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    } else {
        process.kill();
        process.waitForFinished();
    }
    run.output = process.readAllStandardOutput();
    run.diagnostics = process.readAllStandardError();
    run.reply = QJsonDocument::fromJson(run.output).object();
    return run;
}
