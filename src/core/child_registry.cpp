#include "core/child_registry.h"

#include <vector>

namespace {

using State = ChildProcess::State;

struct Registry
{
    std::mutex mutex;
    std::condition_variable emptied;
    std::vector<std::shared_ptr<State>> alive;
    bool leaving = false;
    bool closed = false;
};

Registry &registry()
{
    static auto *const shared =
        new Registry; // outlives the watching threads, which are not waited for at exit
    return *shared;
}

} // namespace

bool ChildRegistry::enroll(const std::shared_ptr<State> &child)
{
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    if (all.closed)
        return false;
    all.alive.push_back(child);
    return true;
}

void ChildRegistry::forget(const std::shared_ptr<State> &child)
{
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    std::erase(all.alive, child);
    if (all.alive.empty())
        all.emptied.notify_all();
}

void ChildRegistry::leave()
{
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    all.leaving = true;
}

bool ChildRegistry::isLeaving()
{
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    return all.leaving;
}

bool ChildRegistry::isClosed()
{
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    return all.closed;
}

void ChildRegistry::signalAll(std::initializer_list<int> numbers, bool close)
{
    Registry &all = registry();
    std::vector<std::shared_ptr<State>> running;
    {
        const std::lock_guard lock(all.mutex);
        all.closed |= close;
        running = all.alive;
    }
    for (const auto &child : running)
        child->signal(numbers);
}

bool ChildRegistry::waitUntilEmpty(std::chrono::milliseconds limit)
{
    Registry &all = registry();
    std::unique_lock lock(all.mutex);
    return all.emptied.wait_for(lock, limit, [&] { return all.alive.empty(); });
}
