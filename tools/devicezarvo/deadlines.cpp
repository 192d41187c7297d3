#include "deadlines.h"

using namespace std::chrono_literals;

const Deadlines &CurrentDeadlines()
{
    static constexpr Deadlines deadlines{.devices = 12s,
                                         .phone = 4s,
                                         .request = 36s,
                                         .install = 890s,
                                         .step = 25s,
                                         .silence = 300s,
                                         .pause = 250ms,
                                         .cleanup = 1s,
                                         .goodbye = 2s};
    return deadlines;
}
