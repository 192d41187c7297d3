#include "virtual_phone/plugged_phones.h"

#include <QFile>
#include <QJsonDocument>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatience = 20'000; // ms

QByteArray configOf(const QJsonArray &phones)
{
    return QJsonDocument(QJsonObject{{"phones"_L1, phones}}).toJson();
}

} // namespace

QJsonObject soundPhone(const QJsonObject &changes)
{
    const QJsonObject metadata{{"itemId"_L1, 1700000116}};
    const QJsonArray apps{
        QJsonObject{{"CFBundleIdentifier"_L1, u"ru.primer.kot"_s},
                    {"CFBundleDisplayName"_L1, u"Шашки Кота"_s},
                    {"CFBundleVersion"_L1, u"71"_s},
                    {"iTunesMetadata"_L1, metadata}},
        QJsonObject{{"CFBundleIdentifier"_L1, u"com.example.wiklik"_s}, {"CFBundleVersion"_L1, u"3.6.1"_s}},
        QJsonObject{{"CFBundleIdentifier"_L1, u"com.example.camera"_s}, {"ApplicationType"_L1, u"System"_s}}};
    QJsonObject phone{{"udid"_L1, kUdid},
                      {"name"_L1, u"iPhone Марии"_s},
                      {"serial"_L1, u"DEMO0000001A"_s},
                      {"apps"_L1, apps}};
    for (auto change = changes.begin(); change != changes.end(); ++change)
        phone[change.key()] = change.value();
    return phone;
}

PluggedPhones::PluggedPhones(const QJsonArray &phones)
{
    // The library writes to connections that a phone has dropped.
    std::signal(SIGPIPE, SIG_IGN);
    qputenv("USBMUXD_SOCKET_ADDRESS", "UNIX:" + QFile::encodeName(socketPath()));
    if (write(configOf(phones)))
        restart();
}

PluggedPhones::~PluggedPhones()
{
    m_process.terminate();
    if (!m_process.waitForFinished(kPatience) || m_process.exitStatus() != QProcess::NormalExit ||
        m_process.exitCode() != 0)
        qFatal("the virtual phone does not end, or not well");
}

void PluggedPhones::restart()
{
    m_process.terminate();
    m_process.waitForFinished(kPatience);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QStringLiteral(ZARVO_VIRTUAL_PHONE),
                    {u"--socket"_s, socketPath(), u"--config"_s, filePath(u"config.json"_s), u"--state"_s,
                     filePath(u"state"_s)});
    m_ready = awaitLine("ready\n");
}

bool PluggedPhones::write(const QByteArray &config) const
{
    QFile file(filePath(u"config.json"_s));
    return file.open(QIODevice::WriteOnly) && file.write(config) == config.size();
}

bool PluggedPhones::awaitLine(const QByteArray &line)
{
    m_said.clear();
    while (!m_said.contains('\n') && m_process.waitForReadyRead(kPatience))
        m_said += m_process.readAllStandardOutput();
    return m_said == line;
}

QByteArray PluggedPhones::change(const QByteArray &config)
{
    if (!write(config) || ::kill(static_cast<pid_t>(m_process.processId()), SIGHUP) != 0)
        return {};
    awaitLine({});
    return m_said.trimmed();
}

QByteArray PluggedPhones::change(const QJsonArray &phones)
{
    return change(configOf(phones));
}

ProgramRun PluggedPhones::run(const QString &program, QStringList arguments) const
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, QStringList{u"-u"_s, kUdid} + arguments);
    if (!process.waitForFinished(kPatience)) {
        process.kill();
        process.waitForFinished();
        return {-1, process.errorString().toUtf8() + process.readAll()};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAll()};
}

Device openDevice()
{
    idevice_t device = nullptr;
    idevice_new_with_options(&device, kUdid.toLatin1().constData(),
                             static_cast<idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK));
    return Device(device);
}
