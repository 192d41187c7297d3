#include "measuring.h"

#include "core/file_descriptor.h"
#include "cost.h"

#include <QFile>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

using namespace Qt::StringLiterals;

extern "C" char **environ; // not declared by every libc

namespace {

bool missed = false;

double timeOf(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::vector<double> timesBy(clockid_t clock, int rounds, const std::function<void()> &work)
{
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        const double start = timeOf(clock);
        work();
        times.push_back(timeOf(clock) - start);
    }
    return times;
}

QByteArray readFile(const char *path)
{
    QFile file(QString::fromLatin1(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

double now()
{
    return timeOf(CLOCK_MONOTONIC);
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double worst(const std::vector<double> &values)
{
    return *std::max_element(values.begin(), values.end());
}

std::vector<double> timesOf(int rounds, const std::function<void()> &work)
{
    return timesBy(CLOCK_MONOTONIC, rounds, work);
}

std::vector<double> processorTimesOf(int rounds, const std::function<void()> &work)
{
    return timesBy(CLOCK_THREAD_CPUTIME_ID, rounds, work);
}

BareRun runBare(const QStringList &command, bool keepOutput)
{
    QList<QByteArray> texts{ZARVO_MEASURED_RUN};
    std::vector<char *> arguments;
    for (const QString &word : command)
        texts.append(word.toUtf8());
    for (QByteArray &text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    BareRun run;
    FileDescriptor output;
    FileDescriptor outputEnd;
    FileDescriptor costs;
    FileDescriptor costsEnd;
    if (!makePipe(costs, costsEnd) || (keepOutput && !makePipe(output, outputEnd)))
        return run;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, costsEnd.get(), kCostDescriptor);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    if (keepOutput)
        ::posix_spawn_file_actions_adddup2(&actions, outputEnd.get(), 1);
    else
        ::posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int failure = ::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    outputEnd.reset();
    costsEnd.reset();
    if (failure != 0)
        return run;
    char buffer[4096];
    for (ssize_t got = 0; keepOutput && (got = ::read(output.get(), buffer, sizeof buffer)) > 0;)
        run.output.append(buffer, got);
    Cost cost;
    if (::read(costs.get(), &cost, sizeof cost) == sizeof cost)
        run = {cost.seconds, cost.processor, static_cast<double>(cost.kilobytes) * 1024 / 1e6, cost.status,
               run.output};
    ::waitpid(child, nullptr, 0);
    return run;
}

double peakMegabytes()
{
    const QByteArray status = readFile("/proc/self/status");
    const qsizetype at = status.indexOf("VmHWM:");
    return status.mid(at + 6, status.indexOf("kB", at) - at - 6).trimmed().toDouble() * 1024 / 1e6;
}

void report(const QString &what, const QString &value, const QString &figure, bool met)
{
    missed = missed || !met;
    const char *verdict = figure.isEmpty() ? "" : met ? "met" : "MISSED";
    std::printf("| %s | %s | %s | %s |\n", qUtf8Printable(what), qUtf8Printable(value),
                qUtf8Printable(figure), verdict);
    std::fflush(stdout);
}

bool allMet()
{
    return !missed;
}
