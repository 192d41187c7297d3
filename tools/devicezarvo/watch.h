// Ends the program in time, whatever the library is doing.
#pragma once

#include "fault.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

/// Watches over a run from a thread of its own: over its time as a whole, over the time of the step at hand,
/// and for SIGTERM, SIGINT and SIGHUP. The library's calls cannot be interrupted, so the way out is the
/// handler, which must end the program. One at a time. Methods: any thread.
class Watch
{
public:
    using Clock = std::chrono::steady_clock;
    /// Called on the watch's thread. Must not return.
    using Handler = std::function<void(Fault)>;

    /// `total`: the time of the run.
    Watch(std::chrono::milliseconds total, Handler handler);
    ~Watch();
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    /// A step begins, the one before has ended. When it takes longer than `limit`, the program ends with
    /// `fault`.
    void step(std::chrono::milliseconds limit, Fault fault = Fault::Silent);

    /// Why to stop: a signal came, or the time is over, while something has to be cleaned up.
    std::optional<Fault> stopReason() const;

    /// While one lives, being told to stop ends the program only after a while, so that its owner can notice
    /// `stopReason` and clean up.
    class Cleanup
    {
    public:
        explicit Cleanup(Watch &watch);
        ~Cleanup();
        Cleanup(const Cleanup &) = delete;
        Cleanup &operator=(const Cleanup &) = delete;

    private:
        Watch &m_watch;
    };

private:
    void run();
    void wake() const;
    int timeToNext();
    void stop(Fault fault);
    void lookAtClock();

    const Handler m_handler;
    mutable std::mutex m_mutex; // guards all below
    Clock::time_point m_end;
    Fault m_endFault = Fault::Silent;
    Clock::time_point m_stepEnd = Clock::time_point::max();
    Fault m_stepFault = Fault::Silent;
    int m_cleanups = 0;
    std::optional<Fault> m_stop;
    bool m_over = false;
    std::thread m_thread;
};
