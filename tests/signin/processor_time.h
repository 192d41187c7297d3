// How long the calling thread has worked: unlike a clock it does not count what else the machine was busy
// with.
#pragma once

#include <chrono>
#include <ctime>

inline std::chrono::nanoseconds ProcessorTime()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}
