#include "watch.h"

#include "deadlines.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <limits>

namespace {

constexpr int kSignals[]{SIGTERM, SIGINT, SIGHUP};
constexpr char kWake = 'w';
constexpr char kSignalled = 's';

// A signal handler reaches nothing but globals.
int pipeEnds[2]{-1, -1};

void writeToPipe(char what)
{
    const int before = errno;
    // A full pipe already wakes the reader.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &what, 1);
    errno = before;
}

void onSignal(int)
{
    writeToPipe(kSignalled);
}

void openPipe()
{
    // Without it no limit holds: better not to begin at all.
    if (::pipe(pipeEnds) != 0)
        std::abort();
    for (const int end : pipeEnds) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

void handleSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int signal : kSignals)
        ::sigaction(signal, &action, nullptr);
}

} // namespace

Watch::Watch(std::chrono::milliseconds total, Handler handler)
    : m_handler(std::move(handler))
    , m_end(Clock::now() + total)
{
    openPipe();
    handleSignals(onSignal);
    m_thread = std::thread([this] { run(); });
}

Watch::~Watch()
{
    {
        const std::lock_guard lock(m_mutex);
        m_over = true;
    }
    wake();
    m_thread.join();
    handleSignals(SIG_DFL);
    for (int &end : pipeEnds) {
        ::close(end);
        end = -1;
    }
}

void Watch::step(std::chrono::milliseconds limit, Fault fault)
{
    bool sooner = false;
    {
        const std::lock_guard lock(m_mutex);
        const auto end = Clock::now() + limit;
        sooner = end < m_stepEnd;
        m_stepEnd = end;
        m_stepFault = fault;
    }
    if (sooner)
        wake(); // a later end is noticed when the one before comes
}

std::optional<Fault> Watch::stopReason() const
{
    const std::lock_guard lock(m_mutex);
    return m_stop;
}

void Watch::wake() const
{
    writeToPipe(kWake);
}

int Watch::timeToNext()
{
    const std::lock_guard lock(m_mutex);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::min(m_end, m_stepEnd) - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
}

void Watch::run()
{
    for (;;) {
        pollfd waiting{pipeEnds[0], POLLIN, 0};
        ::poll(&waiting, 1, timeToNext());
        char what = 0;
        while (::read(pipeEnds[0], &what, 1) == 1) {
            if (what == kSignalled)
                stop(Fault::Cancelled);
        }
        {
            const std::lock_guard lock(m_mutex);
            if (m_over)
                return;
        }
        lookAtClock();
    }
}

void Watch::lookAtClock()
{
    std::unique_lock lock(m_mutex);
    const auto time = Clock::now();
    if (time >= m_stepEnd) {
        const Fault fault = m_stepFault;
        lock.unlock();
        m_handler(fault);
    } else if (time >= m_end) {
        const Fault fault = m_endFault;
        lock.unlock();
        stop(fault);
    }
}

void Watch::stop(Fault fault)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_cleanups > 0 && !m_stop) {
            m_stop = fault;
            m_end = Clock::now() + CurrentDeadlines().cleanup;
            m_endFault = fault;
            return;
        }
        if (m_stop && Clock::now() < m_end)
            return; // told again while cleaning up
    }
    m_handler(fault);
}

Watch::Cleanup::Cleanup(Watch &watch)
    : m_watch(watch)
{
    const std::lock_guard lock(m_watch.m_mutex);
    ++m_watch.m_cleanups;
}

Watch::Cleanup::~Cleanup()
{
    const std::lock_guard lock(m_watch.m_mutex);
    --m_watch.m_cleanups;
}
