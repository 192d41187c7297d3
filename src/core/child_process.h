// One child process: started, watched and reaped.
#pragma once

#include "core/error.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>

/// How a child has ended.
struct ExitStatus
{
    int code = 0;          ///< its exit status, or the number of the signal that ended it
    bool isSignal = false; ///< which of the two: both have the same numbers
};

/// A running or ended child. It is reached through a shared handle, so that a thread which wants to end it
/// can never signal a process that was reaped and whose number another process has got. All methods: any
/// thread.
///
/// The child leads a session of its own (it can prompt on no terminal of ours), inherits no descriptor but 0,
/// 1 and 2, starts with default signal dispositions, gets no rights that this process does not have (set-uid
/// programs included), and is killed by the system when this process dies. macOS does not offer the last two:
/// there a child goes on to its own end when this process crashes or is killed.
class ChildProcess
{
public:
    struct Options
    {
        QString path;                                 ///< absolute path of the executable
        QStringList arguments;                        ///< without the program's name
        int input = -1;                               ///< descriptor for 0; -1 for the null device
        int output = -1;                              ///< descriptor for 1; -1 for the null device
        int error = -1;                               ///< descriptor for 2; -1 for the null device
        std::optional<qint64> fileSize;               ///< limit of any file that it writes, in bytes
        std::optional<QList<QByteArray>> environment; ///< the whole environment; else inherited
        bool controllingTerminal = false;             ///< make `input` its controlling terminal
    };

    /// Starts the child. Fails, with the system's reason, when it cannot be started: also when the executable
    /// is missing or not executable, which is known before this returns. Does not keep the descriptors.
    static std::shared_ptr<ChildProcess> start(const Options &options, Error *error = nullptr);

    /// Asks the child, and what it started in its own process group, to end (SIGTERM; a stopped one goes
    /// on, to hear it). Nothing when it has ended.
    void terminate();
    /// Ends it, and what it started in its own process group, without asking (SIGKILL). Nothing when it has
    /// ended.
    void kill();
    bool isRunning() const;
    /// Waits until the child has ended, at most `limit`; true when it has.
    bool waitForExit(std::chrono::milliseconds limit) const;
    /// Meaningful once it has ended.
    ExitStatus exitStatus() const;

    /// The first step on the way out of the program: a child that ends from now on takes with it what it
    /// leaves in its process group, which nobody could end later.
    static void leave();
    /// Asks every child of this process to end (SIGTERM).
    static void terminateAll();
    /// Ends every child of this process at once (SIGKILL), for the way out of the program. Children started
    /// afterwards fail to start.
    static void killAll();
    /// Waits until no child of this process runs, at most `limit`; true when none does.
    static bool waitForAll(std::chrono::milliseconds limit);

    struct State; // the part that the thread watching the child shares
    explicit ChildProcess(std::shared_ptr<State> state);

private:
    std::shared_ptr<State> m_state;
};
