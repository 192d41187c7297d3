// Handing work to the main thread.
#pragma once

#include <functional>

/// Runs `block` on the main thread: at once, before returning, when called there; otherwise queued, returning
/// without waiting. Blocks queued by one thread run in their order. A queued block runs only while the
/// application's event loop does. Any thread.
void ZarvoMain(std::function<void()> block);
