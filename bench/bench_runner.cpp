// The tool runner: how soon it notices that a child has ended, and what it adds to a run.
#include "core/tool_runner.h"
#include "measuring.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRunRounds = 60;
constexpr double kNoticing = 0.005;

} // namespace

// The child's last deed is to tell the time.
int printTime()
{
    std::printf("%.9f\n", now());
    return 0;
}

void benchRunner(const QString &self)
{
    std::vector<double> noticed;
    for (int round = 0; round < kRunRounds; ++round) {
        const auto result = ZarvoCommand(self, {u"--print-time"_s}, RunTimeout{20});
        if (result)
            noticed.push_back(now() - result->out.toDouble());
    }
    report(
        u"child's last deed to the runner's return, median of %1"_s.arg(kRunRounds),
        u"%1 ms (worst %2 ms)"_s.arg(median(noticed) * 1e3, 0, 'f', 2).arg(worst(noticed) * 1e3, 0, 'f', 2),
        u"≤ 5 ms"_s, median(noticed) <= kNoticing);

    const double run = median(timesOf(kRunRounds, [] { ZarvoCommand(u"/bin/true"_s, {}, RunTimeout{20}); }));
    const double shell = median(timesOf(kRunRounds, [] {
        runBare({u"/bin/sh"_s, u"-c"_s, u"/bin/true; exit $?"_s});
    }));
    report(u"a whole run of /bin/true: the runner, over the same from a shell"_s,
           u"%1 ms over %2 ms, ratio %3"_s.arg(run * 1e3, 0, 'f', 2)
               .arg(shell * 1e3, 0, 'f', 2)
               .arg(run / shell, 0, 'f', 2));
}
