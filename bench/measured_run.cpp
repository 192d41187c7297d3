// Runs the program that its arguments name and writes what that cost. It is a program of its own, and a small
// one: the system counts a child's memory from what the process held that started it.
#include "cost.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

extern "C" char **environ; // not declared by every libc

namespace {

double now()
{
    timespec time = {};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return 1;
    ::fcntl(kCostDescriptor, F_SETFD, FD_CLOEXEC);
    Cost cost;
    pid_t child = -1;
    const double start = now();
    if (::posix_spawnp(&child, argv[1], nullptr, nullptr, argv + 1, environ) == 0) {
        rusage usage = {};
        while (::wait4(child, &cost.status, 0, &usage) < 0 && errno == EINTR) {
        }
        cost.seconds = now() - start;
        cost.processor = seconds(usage.ru_utime) + seconds(usage.ru_stime);
        cost.kilobytes = usage.ru_maxrss;
    }
    return ::write(kCostDescriptor, &cost, sizeof cost) == sizeof cost ? 0 : 1;
}
