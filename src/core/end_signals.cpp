#include "core/end_signals.h"

#include "core/file_descriptor.h"

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

namespace {

constexpr int kEndSignals[] = {SIGTERM, SIGINT, SIGHUP};

// The handler's way to the thread; open as long as the process lives.
int g_writeEnd = -1;

extern "C" void noteEndSignal(int number)
{
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_writeEnd, &byte, 1);
    errno = saved;
}

// Waits in poll(): ThreadSanitizer lets a handler run there at once, but keeps the signal back from a thread
// in read().
void serve(int readEnd, const std::function<void(int)> &act)
{
    while (true) {
        pollfd readable{readEnd, POLLIN, 0};
        if (::poll(&readable, 1, -1) <= 0)
            continue;
        unsigned char number = 0;
        if (::read(readEnd, &number, 1) == 1)
            act(number);
    }
}

} // namespace

bool OnEndSignals(std::function<void(int)> act)
{
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
    if (!makePipe(readEnd, writeEnd))
        return false;
    try {
        std::thread([end = std::move(readEnd), act = std::move(act)] { serve(end.get(), act); }).detach();
    } catch (const std::system_error &) {
        return false;
    }
    g_writeEnd = writeEnd.release();
    struct sigaction handling = {};
    handling.sa_handler = noteEndSignal;
    handling.sa_flags = SA_RESTART;
    sigemptyset(&handling.sa_mask);
    for (const int number : kEndSignals) {
        struct sigaction former = {};
        if (::sigaction(number, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            ::sigaction(number, &handling, nullptr);
    }
    return true;
}

void EndBySignal(int number)
{
    ::signal(number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    ::raise(number);
    std::_Exit(1); // whoever started the process may block the signal elsewhere
}
