// The threads on which the window's long work runs.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

/// Starts threads and knows when they have ended. The thread that owns the object calls its methods; work
/// that runs may run further work.
class Background
{
public:
    Background();
    /// Waits for every thread that is still at work.
    ~Background();
    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    /// Runs `work` on a thread of its own; false when the system has no thread left.
    bool run(std::function<void()> work);
    /// Waits until no thread is at work, at most `limit`; true when none is.
    bool waitForDone(std::chrono::milliseconds limit);

private:
    struct Count;
    std::shared_ptr<Count> m_count;
};
