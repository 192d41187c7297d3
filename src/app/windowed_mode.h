// The program with its window, from the start to the exit status.
#pragma once

#include <QString>

#include <functional>

struct WindowedOptions
{
    QString resources = {}; ///< the folder that holds Tools/; empty: the one that goes with the executable
    std::function<void()> launched = {}; ///< called once the window stands
};

/// Runs the windowed program, with the IPA chosen for installing that is its only argument, until the user
/// quits, closes the window, or the system asks it to end; all ways lead through the same stop. Returns the
/// exit status; on the way out it waits for no work longer than a third of a second and leaves neither a
/// child nor a private folder. Ends the process itself where work does not come back, and with status 1 and a
/// sentence on standard error where there is no display. Main thread, once.
int RunWindow(int &argc, char **argv, const WindowedOptions &options = {});
