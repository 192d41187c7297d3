// The children that run, so that the way out of the program reaches all of them. Within core only; any
// thread.
#pragma once

#include "core/child_process.h"

#include <condition_variable>
#include <csignal>
#include <initializer_list>
#include <mutex>

// Shared by the handles and by the thread that started the child and waits for it.
struct ChildProcess::State
{
    enum class Phase { Starting, Failed, Running, Ended };

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Phase phase = Phase::Starting;
    pid_t pid = -1;
    int launchError = 0;
    ExitStatus status;

    void enter(Phase next)
    {
        const std::lock_guard lock(mutex);
        phase = next;
        changed.notify_all();
    }

    // The number stays the child's own until it is reaped, and it is reaped only under this lock.
    void signal(std::initializer_list<int> numbers) const
    {
        const std::lock_guard lock(mutex);
        if (phase != Phase::Running)
            return;
        for (const int number : numbers)
            ::kill(-pid, number);
    }
};

namespace ChildRegistry {

/// Takes the child in before it is started; false once all were ended: then it must not be started.
bool enroll(const std::shared_ptr<ChildProcess::State> &child);
/// Lets go of one that has ended or could not be started.
void forget(const std::shared_ptr<ChildProcess::State> &child);
/// From now on a child's group ends with it.
void leave();
/// True once leave() was called.
bool isLeaving();
/// True once all were ended for good.
bool isClosed();
/// Sends the signals, in their order, to every child that runs; `close` lets no further one start.
void signalAll(std::initializer_list<int> numbers, bool close);
/// Waits until none is left, at most `limit`; true when none is.
bool waitUntilEmpty(std::chrono::milliseconds limit);

} // namespace ChildRegistry
