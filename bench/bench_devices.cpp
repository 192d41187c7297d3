// The device tool on virtual phones, against the field's own programs on the same work in the same run.
#include "ipa_writer.h"
#include "measuring.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

constexpr int kCommandRounds = 15;
constexpr int kUploadRounds = 3;
constexpr int kPhoneApps = 600;
constexpr int kPlugPatience = 20'000; // ms, for the phones to come
constexpr qint64 kUpload = 1'000'000'000;
constexpr double kDevicesSeconds = 0.1;
constexpr double kAppsSeconds = 1.0;
constexpr double kUploadRate = 300;  // MB/s
constexpr double kUploadMemory = 64; // MB

const QString kPhone = u"00008DE0-000000000000001A"_s;
const QString kOther = u"00008DE0-000000000000002B"_s;

QJsonObject phone(const QString &id, int apps)
{
    QJsonArray list;
    for (int i = 0; i < apps; ++i)
        list.append(QJsonObject{{"CFBundleIdentifier"_L1, u"com.example.app%1"_s.arg(i)},
                                {"CFBundleDisplayName"_L1, u"App %1"_s.arg(i)},
                                {"CFBundleShortVersionString"_L1, u"1.%1"_s.arg(i)},
                                {"ApplicationType"_L1, u"User"_s},
                                {"iTunesMetadata"_L1, QJsonObject{{"itemId"_L1, 1700000000 + i}}}});
    return {{"udid"_L1, id},
            {"name"_L1, u"iPhone"_s},
            {"productType"_L1, u"iPhone14,5"_s},
            {"productVersion"_L1, u"17.5.1"_s},
            {"uploads"_L1, u"discard"_s},
            {"apps"_L1, list}};
}

bool startPhones(QProcess &process, const QString &program, const QString &folder)
{
    const QString socket = folder + u"/usbmuxd"_s;
    QFile config(folder + u"/phones.json"_s);
    if (!config.open(QIODevice::WriteOnly))
        return false;
    const QJsonArray phones{phone(kPhone, kPhoneApps), phone(kOther, 0)};
    config.write(QJsonDocument(QJsonObject{{"phones"_L1, phones}}).toJson());
    config.close();
    qputenv("USBMUXD_SOCKET_ADDRESS", QFile::encodeName(u"UNIX:"_s + socket));
    process.start(program, {u"--socket"_s, socket, u"--config"_s, config.fileName()});
    return process.waitForReadyRead(kPlugPatience) && process.readAllStandardOutput().contains("ready");
}

struct Work
{
    QString name;
    QStringList ours;
    QStringList theirs; ///< the same work by another program
};

struct Runs
{
    std::vector<double> seconds;
    double megabytes = 0;
    bool failed = false;

    void add(const BareRun &run)
    {
        seconds.push_back(run.seconds);
        megabytes = std::max(megabytes, run.megabytes);
        failed = failed || run.status != 0;
    }
};

/// Rounds alternate, so that a busy moment of the machine meets both sides.
std::pair<Runs, Runs> compare(const Work &work, int rounds)
{
    std::pair<Runs, Runs> runs;
    for (int round = 0; round < rounds; ++round) {
        runs.first.add(runBare(work.ours));
        runs.second.add(runBare(work.theirs));
    }
    return runs;
}

void compareTimes(const Work &work, double limit)
{
    const auto [ours, theirs] = compare(work, kCommandRounds);
    const double seconds = median(ours.seconds);
    report(work.name + (theirs.failed ? u" (the other program failed)"_s : QString()),
           u"%1 ms over %2 ms, ratio %3"_s.arg(seconds * 1e3, 0, 'f', 1)
               .arg(median(theirs.seconds) * 1e3, 0, 'f', 1)
               .arg(seconds / median(theirs.seconds), 0, 'f', 2),
           u"≤ %1 s"_s.arg(limit), !ours.failed && seconds <= limit);
}

void compareUploads(const Work &work)
{
    const auto [ours, theirs] = compare(work, kUploadRounds);
    const double rate = kUpload / 1e6 / median(ours.seconds);
    const double otherRate = kUpload / 1e6 / median(theirs.seconds);
    report(work.name + (theirs.failed ? u" (the other program failed)"_s : QString()),
           u"%1 MB/s over %2 MB/s, ratio %3"_s.arg(rate, 0, 'f', 0)
               .arg(otherRate, 0, 'f', 0)
               .arg(rate / otherRate, 0, 'f', 2),
           u"≥ 300 MB/s"_s, !ours.failed && rate >= kUploadRate);
    report(u"the same, resident memory"_s,
           u"%1 MB over %2 MB"_s.arg(ours.megabytes, 0, 'f', 0).arg(theirs.megabytes, 0, 'f', 0),
           u"≤ 64 MB"_s, ours.megabytes <= kUploadMemory);
}

} // namespace

void benchDevices(const QString &tool, const QString &virtualPhone, const QString &folder)
{
    QProcess phones;
    if (!startPhones(phones, virtualPhone, folder))
        return report(u"virtual phones"_s, u"did not start"_s, u"started"_s, false);
    compareTimes(
        {u"devices, two phones, over idevice_id -l"_s, {tool, u"devices"_s}, {u"idevice_id"_s, u"-l"_s}},
        kDevicesSeconds);
    compareTimes({u"apps, %1 apps, over ideviceinstaller -l"_s.arg(kPhoneApps),
                  {tool, u"apps"_s, kPhone},
                  {u"ideviceinstaller"_s, u"-u"_s, kPhone, u"-l"_s}},
                 kAppsSeconds);
    const QString ipa = folder + u"/large.ipa"_s;
    const QString name = u"install of 1 GB, whole run, the phone discards it, over ideviceinstaller -i"_s;
    if (writeIPA(QFile::encodeName(ipa).toStdString(), {.padding = kUpload}))
        compareUploads({name,
                        {tool, u"install"_s, kPhone, ipa},
                        {u"ideviceinstaller"_s, u"-u"_s, kPhone, u"-i"_s, ipa}});
    else
        report(name, u"the IPA could not be written"_s, u"≥ 300 MB/s"_s, false);
    QFile::remove(ipa);
    phones.terminate();
    phones.waitForFinished();
}
