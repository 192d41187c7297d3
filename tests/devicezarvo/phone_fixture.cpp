#include "devicezarvo/phone_fixture.h"

#include "ipa_writer.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <usbmuxd.h>

#include <csignal>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatience = 60'000; // ms; beyond every limit of the tool that a test runs into

// A misspelt text must not make a test pass for nothing.
QJsonObject object(const QByteArray &members)
{
    const QJsonDocument document = QJsonDocument::fromJson('{' + members + '}');
    if (!document.isObject())
        qFatal("no JSON: %s", members.constData());
    return document.object();
}

} // namespace

QJsonObject phone(const QByteArray &changes, const QString &id)
{
    QJsonObject description = object(R"("name": "iPhone Марии", "productType": "iPhone14,5",
"productVersion": "17.5.1", "buildVersion": "21F90", "serial": "DEMO0000001A",
"apps": [{"CFBundleIdentifier": "ru.primer.kot", "CFBundleDisplayName": "Шашки Кота", "CFBundleVersion": "71",
          "CFBundleShortVersionString": "7.1", "ApplicationType": "User", "iTunesMetadata": {"itemId": 1700000116}},
         {"CFBundleIdentifier": "com.apple.camera", "ApplicationType": "System"}],
"battery": {"CurrentCapacity": 82, "IsCharging": true, "CycleCount": 312, "DesignCapacity": 3227,
            "NominalChargeCapacity": 2937, "Temperature": 2910})");
    description["udid"_L1] = id;
    const QJsonObject changed = object(changes);
    for (auto member = changed.begin(); member != changed.end(); ++member)
        description[member.key()] = member.value();
    return description;
}

QJsonObject faultyPhone(const QByteArray &faults, const QString &id)
{
    return phone("\"faults\": {" + faults + '}', id);
}

bool ToolRun::isWellFormed() const
{
    return !reply.isEmpty() && output.count('\n') == 1 && output.endsWith('\n') &&
           status == (reply.contains("error"_L1) ? 1 : 0);
}

VirtualPhones::VirtualPhones(const QJsonArray &phones, bool mute)
    : m_mute(mute)
{
    std::signal(SIGPIPE, SIG_IGN); // the library writes to connections that a phone has dropped
    qputenv("USBMUXD_SOCKET_ADDRESS", "UNIX:" + QFile::encodeName(filePath(u"socket"_s)));
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    write(phones);
    restart();
}

VirtualPhones::~VirtualPhones()
{
    const bool hasVanished = m_process.state() == QProcess::NotRunning;
    m_process.terminate();
    if (!hasVanished && (!m_process.waitForFinished(kPatience) ||
                         m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0))
        qFatal("the virtual phone does not end, or not well");
}

void VirtualPhones::write(const QJsonArray &phones) const
{
    QFile file(filePath(u"config.json"_s));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(QJsonObject{{"mute"_L1, m_mute}, {"phones"_L1, phones}}).toJson()) < 0)
        qFatal("cannot write the configuration");
}

QByteArray VirtualPhones::line()
{
    QByteArray said;
    while (!said.contains('\n') && m_process.waitForReadyRead(kPatience))
        said += m_process.readAllStandardOutput();
    return said.trimmed();
}

QByteArray VirtualPhones::change(const QJsonArray &phones)
{
    write(phones);
    ::kill(static_cast<pid_t>(m_process.processId()), SIGHUP);
    return line();
}

void VirtualPhones::restart()
{
    m_process.terminate();
    m_process.waitForFinished(kPatience);
    m_process.start(QStringLiteral(ZARVO_VIRTUAL_PHONE),
                    {u"--socket"_s, filePath(u"socket"_s), u"--config"_s, filePath(u"config.json"_s),
                     u"--state"_s, filePath(u"state"_s)});
    if (line() != "ready")
        qFatal("the virtual phone does not start");
}

void VirtualPhones::vanish()
{
    m_process.kill();
    m_process.waitForFinished();
}

void VirtualPhones::forbid()
{
    m_forbidden = ::chmod(QFile::encodeName(filePath(u"socket"_s)).constData(), 0) == 0;
}

std::unique_ptr<QProcess> VirtualPhones::prepare(const QStringList &arguments, Limits limits) const
{
    auto process = std::make_unique<QProcess>();
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

std::unique_ptr<QProcess> VirtualPhones::start(const QStringList &arguments, Limits limits) const
{
    auto process = prepare(arguments, limits);
    process->start();
    return process;
}

ToolRun VirtualPhones::run(const QStringList &arguments, Limits limits) const
{
    return finish(*start(arguments, limits));
}

QByteArray VirtualPhones::print(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, QStringList{u"-u"_s, FirstPhone} + arguments);
    const ToolRun run = finish(process);
    return run.status < 0 ? "failed: " + process.errorString().toUtf8() : run.output;
}

QString VirtualPhones::makeIPA(const QString &id, const QString &version, qint64 padding) const
{
    QString path = filePath(id + u".ipa"_s);
    if (!writeIPA(path.toStdString(), {.id = id, .version = version, .padding = padding}))
        qFatal("cannot write an IPA");
    return path;
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
    return QDir(filePath(u"state/%1/Media/PublicStaging"_s.arg(FirstPhone))).entryList(QDir::Files);
}

ToolRun finish(QProcess &process)
{
    ToolRun run;
    if (process.waitForFinished(kPatience)) {
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

Device openDevice()
{
    idevice_t device = nullptr;
    idevice_new(&device, FirstPhone.toLatin1().constData());
    return Device(device);
}

Afc openAfc(const Device &device)
{
    afc_client_t client = nullptr;
    if (device)
        afc_client_start_service(device.get(), &client, "test");
    return Afc(client);
}
