// How long the tool lets others take.
#pragma once

#include <chrono>

/// The callers give up after 15 s (`devices`), 900 s (`install`) and 40 s (the rest) and then have no answer
/// at all: the tool answers before. The library itself waits up to 30 s for one reply, up to 90 s within one
/// of its calls, and then reports something else than silence: a step ends before that too.
struct Deadlines
{
    std::chrono::milliseconds devices; ///< `devices` as a whole
    std::chrono::milliseconds
        phone; ///< the service's part in it, then the phones': none keeps the others waiting
    std::chrono::milliseconds request; ///< `apps`, `info` and `battery` as a whole
    std::chrono::milliseconds install; ///< `install` as a whole
    std::chrono::milliseconds step;    ///< one exchange with a phone
    std::chrono::milliseconds silence; ///< between two messages of an installation: it checks whole apps
    std::chrono::milliseconds pause;   ///< between two looks at whether to stop while nothing arrives
    std::chrono::milliseconds cleanup; ///< for taking back an upload when told to stop
    std::chrono::milliseconds goodbye; ///< after the answer
};

/// The tests link other ones.
const Deadlines &CurrentDeadlines();
