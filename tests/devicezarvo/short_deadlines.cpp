// Limits of time for the tests' build of the tool: silence is noticed while a person would still wait.
#include "deadlines.h"

using namespace std::chrono_literals;

const Deadlines &CurrentDeadlines()
{
    static constexpr Deadlines deadlines{.devices = 4s,
                                         .phone = 2s,
                                         .request = 4s,
                                         .install = 8s,
                                         .step = 2s,
                                         .silence = 2s,
                                         .pause = 50ms,
                                         .cleanup = 500ms,
                                         .goodbye = 500ms};
    return deadlines;
}
