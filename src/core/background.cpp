#include "core/background.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

struct Background::Count
{
    std::mutex mutex;
    std::condition_variable changed;
    int running = 0;

    void add(int difference)
    {
        const std::lock_guard lock(mutex);
        running += difference;
        changed.notify_all();
    }
};

Background::Background()
    : m_count(std::make_shared<Count>())
{
}

Background::~Background()
{
    std::unique_lock lock(m_count->mutex);
    m_count->changed.wait(lock, [this] { return m_count->running == 0; });
}

bool Background::run(std::function<void()> work)
{
    m_count->add(1);
    try {
        std::thread([count = m_count, work = std::move(work)]() mutable {
            work();
            work =
                nullptr; // what it holds may lead back to the owner, who goes on as soon as the count is down
            count->add(-1);
        }).detach();
    } catch (const std::system_error &) {
        m_count->add(-1);
        return false;
    }
    return true;
}

bool Background::waitForDone(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_count->mutex);
    return m_count->changed.wait_for(lock, limit, [this] { return m_count->running == 0; });
}
