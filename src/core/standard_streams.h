// The standard streams of a program that may have been started without some of them.
#pragma once

#include <fcntl.h>

/// To be called first of all: puts the null device in the place of each standard stream that is missing.
/// Otherwise the next file that is opened takes its place, and what the program prints goes there. Opened for
/// reading only: what is printed to a missing stream has not been printed, and whoever writes is told so.
inline void ReplaceMissingStandardStreams()
{
    for (int stream = 0; stream <= 2; ++stream) {
        if (::fcntl(stream, F_GETFD) < 0) [[maybe_unused]]
            const int lowestFree = ::open("/dev/null", O_RDONLY);
    }
}
