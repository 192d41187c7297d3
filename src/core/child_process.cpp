#include "core/child_process.h"

#include "core/child_registry.h"
#include "core/file_descriptor.h"
#include "core/launch_failure.h"

#include <QFile>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef Q_OS_LINUX
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

extern "C" char **environ; // not declared by every libc

namespace {

using State = ChildProcess::State;

constexpr int kUnknownStatus = 255; // never taken for success

// All that the child needs between fork and exec, prepared before the fork: afterwards only async-signal-safe
// calls are allowed, and memory must not be allocated.
struct Launch
{
    std::vector<QByteArray> texts;
    std::vector<char *> arguments;
    std::vector<char *> environment;
    std::array<int, 3> standard{-1, -1, -1};
    FileDescriptor null;
    FileDescriptor reportRead;
    FileDescriptor reportWrite;
    int descriptorLimit = 0;
    std::optional<qint64> fileSize;
    bool controllingTerminal = false;

    char *const *environmentOrInherited() const { return environment.empty() ? environ : environment.data(); }
};

void pointAt(std::vector<char *> &list, std::vector<QByteArray> &texts, size_t first, size_t last)
{
    for (size_t i = first; i < last; ++i)
        list.push_back(texts[i].data());
    list.push_back(nullptr);
}

// One more than the highest descriptor that can be open.
int descriptorLimit()
{
    constexpr rlim_t kHighest = 1 << 16; // "unlimited" must not become a loop without end
    rlimit limit = {};
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? static_cast<int>(std::min(limit.rlim_cur, kHighest)) : 0;
}

bool prepare(Launch &launch, const ChildProcess::Options &options)
{
    launch.texts.push_back(QFile::encodeName(options.path));
    for (const QString &argument : options.arguments)
        launch.texts.push_back(argument.toUtf8());
    const size_t arguments = launch.texts.size();
    if (options.environment)
        launch.texts.insert(launch.texts.end(), options.environment->begin(), options.environment->end());
    const auto isCut = [](const QByteArray &text) { return text.contains('\0'); };
    if (std::any_of(launch.texts.begin(), launch.texts.end(), isCut)) {
        errno = EINVAL; // the child would be given another word than was asked for
        return false;
    }
    pointAt(launch.arguments, launch.texts, 0, arguments);
    if (options.environment)
        pointAt(launch.environment, launch.texts, arguments, launch.texts.size());

    launch.descriptorLimit = descriptorLimit();
    launch.fileSize = options.fileSize;
    launch.controllingTerminal = options.controllingTerminal;
    launch.null = FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::array given{options.input, options.output, options.error};
    for (size_t i = 0; i < given.size(); ++i)
        launch.standard[i] = given[i] >= 0 ? given[i] : launch.null.get();
    return launch.null.isOpen() && makePipe(launch.reportRead, launch.reportWrite);
}

[[noreturn]] void reportAndExit(int report)
{
    const int number = errno;
    (void)!::write(report, &number, sizeof number);
    ::_exit(127);
}

void resetSignals()
{
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        ::sigaction(number, &byDefault, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// True when the child will be ended together with its parent.
bool dieWithParent([[maybe_unused]] pid_t parent)
{
#ifdef Q_OS_LINUX
    // The signal comes when the thread that forked ends; that thread waits for the child, so it is the
    // process that has ended then.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        return false;
    errno = ECANCELED; // for the report, should the parent have ended before the signal was asked for
    return ::getppid() == parent;
#else
    return true;
#endif
}

// What is run for the user never needs more than the user's rights.
bool gainNoPrivileges()
{
#ifdef Q_OS_LINUX
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
#else
    return true;
#endif
}

// Whatever a library left open without the flag.
void closeTheRestOnExec(int limit)
{
#if defined(Q_OS_LINUX) && defined(SYS_close_range)
    constexpr unsigned kCloseOnExec = 1U << 2;
    if (::syscall(SYS_close_range, 3U, ~0U, kCloseOnExec) == 0)
        return;
#endif
    for (int descriptor = 3; descriptor < limit; ++descriptor)
        ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

bool placeDescriptors(std::array<int, 3> &standard, int &report)
{
    // Out of the way first: a descriptor to be placed may itself be 0, 1 or 2.
    const int moved = ::fcntl(report, F_DUPFD_CLOEXEC, 3);
    if (moved < 0)
        return false; // the failure is reported through the descriptor that still works
    report = moved;
    for (int &descriptor : standard) {
        descriptor = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
        if (descriptor < 0)
            return false;
    }
    for (int i = 0; i < 3; ++i) {
        if (::dup2(standard[static_cast<size_t>(i)], i) < 0)
            return false;
    }
    return true;
}

void applyLimits(const Launch &launch)
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none); // a tool's memory may hold secrets
    if (launch.fileSize) {
        const auto bytes = static_cast<rlim_t>(*launch.fileSize);
        const rlimit limit{bytes, bytes};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
}

// It may run in the parent's memory: in a frame of its own, no local of the parent's is overwritten.
[[noreturn, gnu::noinline]] void runChild(const Launch &launch, pid_t parent)
{
    int report = launch.reportWrite.get();
    std::array<int, 3> standard = launch.standard;
    if (!dieWithParent(parent) || !gainNoPrivileges() || !placeDescriptors(standard, report) ||
        ::setsid() < 0)
        reportAndExit(report);
    closeTheRestOnExec(launch.descriptorLimit);
    if (launch.controllingTerminal && ::ioctl(0, TIOCSCTTY, 0) != 0)
        reportAndExit(report);
    resetSignals();
    applyLimits(launch);
    ::execve(launch.arguments.front(), launch.arguments.data(), launch.environmentOrInherited());
    reportAndExit(report);
}

ExitStatus waitStatus(pid_t pid)
{
    int status = 0;
    pid_t reaped = 0;
    do {
        reaped = ::waitpid(pid, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    if (reaped != pid)
        return {kUnknownStatus, false};
    return WIFSIGNALED(status) ? ExitStatus{WTERMSIG(status), true} : ExitStatus{WEXITSTATUS(status), false};
}

// Whoever started this process may have left it with the child signal ignored, and a library may have asked
// for the same in another way; then the system reaps by itself and keeps no exit status.
void keepExitStatuses()
{
    struct sigaction action = {};
    if (::sigaction(SIGCHLD, nullptr, &action) != 0)
        return;
    const bool isIgnored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
    if (!isIgnored && (action.sa_flags & SA_NOCLDWAIT) == 0)
        return;
    if (isIgnored)
        action.sa_handler = SIG_DFL;
    action.sa_flags &= ~SA_NOCLDWAIT;
    ::sigaction(SIGCHLD, &action, nullptr);
}

// The errno of the failed start, or 0: the pipe closes by itself when the exec succeeds.
int readReport(Launch &launch)
{
    launch.reportWrite.reset();
    int number = 0;
    ssize_t got = 0;
    do {
        got = ::read(launch.reportRead.get(), &number, sizeof number);
    } while (got < 0 && errno == EINTR);
    return got == sizeof number ? number : 0;
}

void fail(const std::shared_ptr<State> &state, int number)
{
    state->launchError = number;
    ChildRegistry::forget(state);
    state->enter(State::Phase::Failed);
}

// Body of the thread that owns the child from fork to reaping.
void watch(const std::shared_ptr<State> &state, std::unique_ptr<Launch> launch)
{
    sigset_t every;
    sigfillset(&every);
    ::pthread_sigmask(SIG_SETMASK, &every, nullptr); // no handler of ours may run in the child
    const pid_t parent = ::getpid();
#ifdef Q_OS_LINUX
    // The child borrows this thread's memory until it has executed its program: copying the tables of a large
    // process would cost more than most of our children take.
    const pid_t pid = ::vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): see runChild
#else
    const pid_t pid = ::fork();
#endif
    if (pid == 0)
        runChild(*launch, parent); // NOLINT(clang-analyzer-unix.Vfork): only system calls
    if (pid < 0)
        return fail(state, errno);
    if (const int number = readReport(*launch)) {
        waitStatus(pid);
        return fail(state, number);
    }
    launch.reset();
    state->pid = pid;
    state->enter(State::Phase::Running);
    if (ChildRegistry::isClosed())
        state->signal({SIGKILL}); // it was being started when all were ended

    siginfo_t info;
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    {
        const std::lock_guard lock(state->mutex);
        // No other group can have the number before the child is reaped.
        if (ChildRegistry::isLeaving())
            ::kill(-pid, SIGKILL);
        state->status = waitStatus(pid);
        state->phase = State::Phase::Ended;
        state->changed.notify_all();
    }
    ChildRegistry::forget(state);
}

} // namespace

ChildProcess::ChildProcess(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
}

std::shared_ptr<ChildProcess> ChildProcess::start(const Options &options, Error *error)
{
    const auto failure = [&](int number) {
        Fail(error, LaunchFailure(options.path, number));
        return nullptr;
    };
    auto launch = std::make_unique<Launch>();
    if (!prepare(*launch, options))
        return failure(errno);
    keepExitStatuses();
    auto state = std::make_shared<State>();
    if (!ChildRegistry::enroll(state))
        return failure(ECANCELED);
    try {
        std::thread(watch, state, std::move(launch)).detach();
    } catch (const std::system_error &refused) {
        ChildRegistry::forget(state);
        return failure(refused.code().value());
    }
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, [&] { return state->phase != State::Phase::Starting; });
    if (state->phase == State::Phase::Failed)
        return failure(state->launchError);
    return std::make_shared<ChildProcess>(state);
}

void ChildProcess::terminate()
{
    m_state->signal({SIGTERM, SIGCONT}); // a stopped child hears only when it goes on
}

void ChildProcess::kill()
{
    m_state->signal({SIGKILL});
}

bool ChildProcess::isRunning() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->phase == State::Phase::Running;
}

bool ChildProcess::waitForExit(std::chrono::milliseconds limit) const
{
    std::unique_lock lock(m_state->mutex);
    return m_state->changed.wait_for(lock, limit, [&] { return m_state->phase == State::Phase::Ended; });
}

ExitStatus ChildProcess::exitStatus() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->status;
}

void ChildProcess::leave()
{
    ChildRegistry::leave();
}

void ChildProcess::terminateAll()
{
    ChildRegistry::signalAll({SIGTERM, SIGCONT}, false);
}

void ChildProcess::killAll()
{
    ChildRegistry::signalAll({SIGKILL}, true);
}

bool ChildProcess::waitForAll(std::chrono::milliseconds limit)
{
    return ChildRegistry::waitUntilEmpty(limit);
}
