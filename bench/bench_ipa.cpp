// Validation and publishing, against the bare `unzip` runs that they consist of.
#include "instructions.h"
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
constexpr double kCheckMemory = 80;

IPAContent contentOf(qint64 bytes)
{
    IPAContent content;
    content.padding = bytes;
    return content;
}

struct Costs
{
    std::vector<double> seconds;
    std::vector<double> processor;

    void add(const QList<BareRun> &runs)
    {
        seconds.push_back(0);
        processor.push_back(0);
        for (const BareRun &run : runs) {
            seconds.back() += run.seconds;
            processor.back() += run.processor;
        }
    }
};

QList<BareRun> threeBareRuns(const QString &file)
{
    const QString unzip = u"/usr/bin/unzip"_s;
    return {runBare({unzip, u"-tqq"_s, file}), runBare({unzip, u"-Z1"_s, file}),
            runBare({unzip, u"-p"_s, file, u"Payload/App.app/Info.plist"_s})};
}

double ratioOfBest(const std::vector<double> &ours, const std::vector<double> &theirs)
{
    return *std::min_element(ours.begin(), ours.end()) / *std::min_element(theirs.begin(), theirs.end());
}

// Rounds alternate, so that a busy moment of the machine meets both sides.
void compareWithUnzip(const QString &zarvo, const QString &file, const QString &label, int rounds, bool small)
{
    const QStringList verify{zarvo, u"--verify-ipa"_s, file, u"com.example.app"_s};
    if (runBare(verify).status != 0)
        return report(label, u"the file was refused"_s, u"accepted"_s, false);
    Costs ours;
    Costs bare;
    double megabytes = 0;
    for (int round = 0; round < rounds; ++round) {
        const BareRun run = runBare(verify);
        ours.add({run});
        megabytes = std::max(megabytes, run.megabytes);
        bare.add(threeBareRuns(file));
    }
    const double added = median(ours.seconds) - median(bare.seconds);
    const double ratio = ratioOfBest(ours.seconds, bare.seconds);
    report(u"--verify-ipa, %1, over three bare unzip runs"_s.arg(label),
           u"%1 s over %2 s: %3 ms more, ratio of the best of %6 %4 (of processor time %5)"_s
               .arg(median(ours.seconds), 0, 'f', 3)
               .arg(median(bare.seconds), 0, 'f', 3)
               .arg(added * 1e3, 0, 'f', 1)
               .arg(ratio, 0, 'f', 3)
               .arg(ratioOfBest(ours.processor, bare.processor), 0, 'f', 3)
               .arg(rounds),
           small ? u"≤ +20 ms"_s : u"ratio ≤ 1.02"_s, small ? added <= kAddedSeconds : ratio <= kRatio);
    report(u"the same, resident memory"_s, u"%1 MB"_s.arg(megabytes, 0, 'f', 1), u"≤ 80 MB"_s,
           megabytes <= kCheckMemory);
}

} // namespace

int publishOnly(const char *source, const char *destination)
{
    const auto info = ZarvoValidateIPA(source);
    return info && ZarvoPublishIPA(source, destination, *info) ? 0 : 1;
}

void countValidation(const char *file)
{
    counted([file] { ZarvoValidateIPA(file); });
}

void benchIPA(const QString &zarvo, const QString &folder)
{
    const QString file = folder + u"/app.ipa"_s;
    const auto write = [&](qint64 bytes) { return writeIPA(file.toStdString(), contentOf(bytes)); };
    QStringList counts;
    const auto count = [&] {
        const auto number = instructionsOf({u"validation"_s, file}, folder);
        counts << (number ? u"%1 million"_s.arg(*number / 1e6, 0, 'f', 2) : u"not counted"_s);
    };
    write(1'000'000);
    compareWithUnzip(zarvo, file, u"1 MB"_s, 31, true);
    count();
    write(10'000'000);
    compareWithUnzip(zarvo, file, u"10 MB"_s, 15, true);
    write(100'000'000);
    compareWithUnzip(zarvo, file, u"100 MB"_s, 7, false);
    count();
    report(u"own instructions of a validation at 1 and 100 MB, counted by "_s + whoCounts(),
           counts.join(u", "_s));
    write(1'000'000'000);
    compareWithUnzip(zarvo, file, u"1 GB"_s, 3, false);

    write(4'000'000'000);
    const QString self = QFile::symLinkTarget(u"/proc/self/exe"_s);
    const QString copy = folder + u"/copy.ipa"_s;
    compareWithUnzip(zarvo, file, u"4 GB"_s, 1, false);
    const BareRun copied = runBare({u"cp"_s, file, copy});
    const BareRun published = runBare({self, u"--publish"_s, file, copy});
    report(u"validating 4 GB and comparing it with an equal file, resident memory"_s,
           u"%1 MB"_s.arg(published.megabytes, 0, 'f', 1), u"≤ 80 MB"_s,
           copied.status == 0 && published.status == 0 && published.megabytes <= kCheckMemory);
    QFile::remove(copy);
    QFile::remove(file);
}
