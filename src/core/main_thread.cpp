#include "core/main_thread.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>

#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace {

// Initialised before main(), hence on the main thread.
const std::thread::id kMainThread = std::this_thread::get_id();

// The blocks cross between the threads in a queue of our own, under our own mutex; Qt only carries
// the wake-up.
class MainQueue : public QObject
{
public:
    void push(std::function<void()> block)
    {
        bool wake = false;
        {
            const std::lock_guard lock(m_mutex);
            wake = m_blocks.empty();
            m_blocks.push_back(std::move(block));
        }
        if (wake)
            post();
    }

protected:
    // One block an event, and the next event is on its way before the block runs: a block that opens a dialog
    // with an event loop of its own neither holds up the blocks behind it nor is overtaken by them.
    void customEvent(QEvent *) override
    {
        std::function<void()> block;
        bool more = false;
        {
            const std::lock_guard lock(m_mutex);
            block = std::move(m_blocks.front());
            m_blocks.pop_front();
            more = !m_blocks.empty();
        }
        if (more)
            post();
        block();
    }

private:
    // On the way exactly while there are blocks.
    void post() { QCoreApplication::postEvent(this, new QEvent(QEvent::User)); }

    std::mutex m_mutex;
    std::deque<std::function<void()>> m_blocks;
};

// Made before main() on the main thread, so that it belongs there, and never destroyed: threads that are not
// waited for may still post while the program ends.
MainQueue *const kMainQueue = new MainQueue;

} // namespace

void ZarvoMain(std::function<void()> block)
{
    if (std::this_thread::get_id() == kMainThread)
        block();
    else
        kMainQueue->push(std::move(block));
}
