#include "instructions.h"

#include "core/file_descriptor.h"
#include "measuring.h"

#include <QFile>
#include <QStandardPaths>

#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>

using namespace Qt::StringLiterals;

// By its name valgrind knows where to count; the compiler must leave it whole.
extern "C" __attribute__((noinline)) void zarvoCountedWork(const std::function<void()> &work)
{
    work();
    asm volatile("");
}

namespace {

// Virtual machines often have no such counter.
FileDescriptor openCounter()
{
    perf_event_attr what = {};
    what.size = sizeof what;
    what.type = PERF_TYPE_HARDWARE;
    what.config = PERF_COUNT_HW_INSTRUCTIONS;
    what.disabled = 1;
    what.exclude_kernel = 1;
    what.exclude_hv = 1;
    return FileDescriptor(
        static_cast<int>(::syscall(SYS_perf_event_open, &what, 0, -1, -1, PERF_FLAG_FD_CLOEXEC)));
}

QString valgrind()
{
    return QStandardPaths::findExecutable(u"valgrind"_s);
}

// Of callgrind's file: "totals: NUMBER".
std::optional<double> totalIn(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine()) {
        if (line.startsWith("totals:"))
            return line.mid(line.indexOf(':') + 1).trimmed().toDouble();
    }
    return std::nullopt;
}

} // namespace

QString whoCounts()
{
    static const bool processor = openCounter().isOpen();
    if (processor)
        return u"the processor"_s;
    return valgrind().isEmpty() ? u"nobody: no counters for this system, valgrind is not installed"_s
                                : u"valgrind"_s;
}

std::optional<double> instructionsOf(const QStringList &arguments, const QString &folder)
{
    const QStringList command =
        QStringList{QFile::symLinkTarget(u"/proc/self/exe"_s), u"--count"_s} + arguments;
    if (whoCounts() != u"valgrind") {
        const BareRun run = runBare(command, true);
        return run.status == 0 && !run.output.isEmpty() ? std::optional(run.output.toDouble()) : std::nullopt;
    }
    const QString file = folder + u"/callgrind"_s;
    const BareRun run =
        runBare(QStringList{valgrind(), u"--tool=callgrind"_s, u"--quiet"_s,
                            u"--toggle-collect=zarvoCountedWork"_s, u"--callgrind-out-file="_s + file} +
                command);
    const auto total = run.status == 0 ? totalIn(file) : std::nullopt;
    QFile::remove(file);
    return total;
}

void counted(const std::function<void()> &work)
{
    const FileDescriptor counter = openCounter();
    if (!counter.isOpen())
        return zarvoCountedWork(work);
    ::ioctl(counter.get(), PERF_EVENT_IOC_ENABLE, 0);
    work();
    ::ioctl(counter.get(), PERF_EVENT_IOC_DISABLE, 0);
    quint64 number = 0;
    if (::read(counter.get(), &number, sizeof number) == sizeof number)
        std::printf("%llu", static_cast<unsigned long long>(number));
}
