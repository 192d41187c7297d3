// The system's requests to end: SIGTERM, SIGINT and SIGHUP.
#pragma once

#include <functional>

/// From now on calls `act` with the number of each such signal, on a thread of its own, one after another; so
/// `act` may do what a signal handler may not. A signal that whoever started this process chose to ignore
/// (nohup, a shell's background job) stays ignored. Children start with the usual dispositions. False when
/// the system has no pipe or thread left: then the signals end the process at once, as usual. To be called
/// once, on the main thread.
bool OnEndSignals(std::function<void(int)> act);

/// Ends this process by the signal `number`, as if it had never been caught: whoever waits for the process
/// sees what ended it.
[[noreturn]] void EndBySignal(int number);
