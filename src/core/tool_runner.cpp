#include "core/tool_runner.h"

#include "core/file_descriptor.h"
#include "core/private_folder.h"
#include "core/tool_output.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Bounds the latency of cancellation and time limits, and the rate of ticks. The end of a child is noticed at
// once.
constexpr std::chrono::milliseconds kPollPeriod{100};

// Files rather than pipes: a child that prints much never blocks on a reader that sleeps.
FileDescriptor createOutput(const QString &path, Error *error)
{
    FileDescriptor file(::open(QFile::encodeName(path).constData(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen())
        Fail(error, SystemError(u"Не удалось создать временный файл"_s, errno));
    return file;
}

qint64 sizeOf(const FileDescriptor &file)
{
    struct stat status = {};
    return ::fstat(file.get(), &status) == 0 ? status.st_size : 0;
}

// An output that cannot be read counts as no bytes.
QByteArray readAll(const FileDescriptor &file)
{
    QByteArray bytes(sizeOf(file), Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got =
            ::pread(file.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled), filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return {};
        filled += got;
    }
    return bytes;
}

class Run
{
public:
    Run(const RunHooks &hooks, const RunLimits &limits, FileDescriptor out, FileDescriptor err)
        : m_hooks(hooks)
        , m_limits(limits)
        , m_out(std::move(out))
        , m_err(std::move(err))
    {
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
    /// A callback that throws must not leave the child behind.
    ~Run()
    {
        if (m_child)
            m_child->terminate();
    }

    bool start(const QString &path, const QStringList &arguments, Error *error)
    {
        ChildProcess::Options options;
        options.path = path;
        options.arguments = arguments;
        options.output = m_out.get();
        options.error = m_err.get();
        options.fileSize = m_limits.fileSize;
        options.environment = m_limits.environment;
        m_child = ChildProcess::start(options, error);
        if (m_child && m_hooks.started)
            m_hooks.started(m_child);
        return m_child != nullptr;
    }

    /// True when the child came to its own end with outputs of a bearable size.
    bool wait(RunTimeout timeout, Error *error)
    {
        using Clock = std::chrono::steady_clock;
        const auto began = Clock::now();
        while (true) {
            const bool running = m_child->isRunning(); // asked first: what an ended child printed is complete
            if (running && (isCancelled() || Clock::now() - began > timeout))
                return stop(error);
            if (isTooLarge()) {
                m_child->kill(); // asking politely would leave time for another gigabyte
                return Fail(error, ZarvoError(m_limits.outputExceeded));
            }
            if (!running)
                return true;
            if (m_hooks.tick)
                m_hooks.tick();
            m_child->waitForExit(kPollPeriod);
        }
    }

    ToolResult result() const
    {
        ToolResult result;
        const ExitStatus status = m_child->exitStatus();
        result.code = status.code;
        result.isKilled = status.isSignal;
        result.data = readAll(m_out);
        result.out = ZarvoText(result.data);
        result.err = ZarvoText(readAll(m_err));
        return result;
    }

private:
    bool isCancelled() const { return m_hooks.cancelled && m_hooks.cancelled(); }
    bool isTooLarge() const { return std::max(sizeOf(m_out), sizeOf(m_err)) > m_limits.output; }
    bool hasPrinted() const { return sizeOf(m_out) + sizeOf(m_err) > 0; }

    bool stop(Error *error)
    {
        m_child->terminate();
        // Asked again: a run that has been cancelled by now counts as cancelled, whatever stopped it.
        if (isCancelled())
            return Fail(error, ZarvoError(u"Операция отменена."_s));
        Error timedOut = ZarvoError(u"Время ожидания истекло. Проверьте подключение и повторите попытку."_s);
        timedOut.kind = hasPrinted() ? Error::Kind::TimedOut : Error::Kind::Mute;
        return Fail(error, timedOut);
    }

    const RunHooks &m_hooks;
    const RunLimits &m_limits;
    FileDescriptor m_out;
    FileDescriptor m_err;
    std::shared_ptr<ChildProcess> m_child;
};

} // namespace

std::optional<ToolResult> ZarvoCommand(const QString &path, const QStringList &arguments, RunTimeout timeout,
                                       const RunHooks &hooks, Error *error, const RunLimits &limits)
{
    const auto folder = PrivateFolder::createTemporary(error);
    if (!folder)
        return std::nullopt;
    FileDescriptor out = createOutput(folder->filePath(u"out"_s), error);
    if (!out.isOpen())
        return std::nullopt;
    FileDescriptor err = createOutput(folder->filePath(u"err"_s), error);
    if (!err.isOpen())
        return std::nullopt;
    Run run(hooks, limits, std::move(out), std::move(err));
    if (!run.start(path, arguments, error) || !run.wait(timeout, error))
        return std::nullopt;
    return run.result();
}
