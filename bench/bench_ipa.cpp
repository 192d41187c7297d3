// Validation and publishing, against the bare `unzip` runs that they consist of.
#include "ipa/ipa_publishing.h"
#include "ipa/ipa_validation.h"
#include "ipa_writer.h"
#include "measuring.h"

#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double kAddedSeconds = 0.020;
constexpr double kRatio = 1.02;
constexpr double kMemory = 80;

IPAContent contentOf(qint64 bytes)
{
    IPAContent content;
    content.padding = bytes;
    return content;
}

double threeBareRuns(const QString &file)
{
    const QString unzip = u"/usr/bin/unzip"_s;
    return runBare({unzip, u"-tqq"_s, file}).seconds + runBare({unzip, u"-Z1"_s, file}).seconds +
           runBare({unzip, u"-p"_s, file, u"Payload/App.app/Info.plist"_s}).seconds;
}

// Rounds alternate, so that a busy moment of the machine meets both sides.
void compareWithUnzip(const QString &zarvo, const QString &file, const QString &label, int rounds, bool small)
{
    const QStringList verify{zarvo, u"--verify-ipa"_s, file, u"com.example.app"_s};
    if (runBare(verify).status != 0)
        return report(label, u"the file was refused"_s, u"accepted"_s, false);
    std::vector<double> ours;
    std::vector<double> bare;
    for (int round = 0; round < rounds; ++round) {
        ours.push_back(runBare(verify).seconds);
        bare.push_back(threeBareRuns(file));
    }
    const double added = median(ours) - median(bare);
    const double ratio =
        *std::min_element(ours.begin(), ours.end()) / *std::min_element(bare.begin(), bare.end());
    report(u"--verify-ipa, %1, over three bare unzip runs"_s.arg(label),
           u"%1 s over %2 s: +%3 ms, ratio %4"_s.arg(median(ours), 0, 'f', 3)
               .arg(median(bare), 0, 'f', 3)
               .arg(added * 1e3, 0, 'f', 1)
               .arg(ratio, 0, 'f', 3),
           small ? u"≤ +20 ms"_s : u"ratio ≤ 1.02"_s, small ? added <= kAddedSeconds : ratio <= kRatio);
}

} // namespace

int publishOnly(const char *source, const char *destination)
{
    const auto info = ZarvoValidateIPA(source);
    return info && ZarvoPublishIPA(source, destination, *info) ? 0 : 1;
}

void benchIPA(const QString &zarvo, const QString &folder)
{
    const QString file = folder + u"/app.ipa"_s;
    const auto write = [&](qint64 bytes) { return writeIPA(file.toStdString(), contentOf(bytes)); };
    write(1'000'000);
    compareWithUnzip(zarvo, file, u"1 MB"_s, 31, true);
    write(100'000'000);
    compareWithUnzip(zarvo, file, u"100 MB"_s, 7, false);
    write(1'000'000'000);
    compareWithUnzip(zarvo, file, u"1 GB"_s, 2, false);

    write(4'000'000'000);
    const QString self = QFile::symLinkTarget(u"/proc/self/exe"_s);
    const QString copy = folder + u"/copy.ipa"_s;
    const BareRun validated = runBare({zarvo, u"--verify-ipa"_s, file, u"com.example.app"_s});
    report(u"--verify-ipa of 4 GB, resident memory"_s, u"%1 MB"_s.arg(validated.megabytes, 0, 'f', 1),
           u"≤ 80 MB"_s, validated.status == 0 && validated.megabytes <= kMemory);
    const BareRun copied = runBare({u"cp"_s, file, copy});
    const BareRun published = runBare({self, u"--publish"_s, file, copy});
    report(u"validating 4 GB and comparing it with an equal file, resident memory"_s,
           u"%1 MB"_s.arg(published.megabytes, 0, 'f', 1), u"≤ 80 MB"_s,
           copied.status == 0 && published.status == 0 && published.megabytes <= kMemory);
    QFile::remove(copy);
    QFile::remove(file);
}
