// Running one command-line tool to its end, with a time limit, cancellation and progress.
#pragma once

#include "core/child_process.h"
#include "core/error.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

/// One finished run.
struct ToolResult
{
    int code = 0;          ///< exit status, or the signal's number when a signal ended the child
    QString out = {};      ///< standard output as text; empty when it is not valid UTF-8
    QString err = {};      ///< standard error, likewise
    QByteArray data = {};  ///< standard output as printed
    bool isKilled = false; ///< a signal ended the child: `code` is no word of its own
};

/// The time in which a run may end; fractions allowed, zero and less stop a child at the first poll.
using RunTimeout = std::chrono::duration<double>;

/// What a caller of ZarvoCommand may wish to be asked or told. All are called on the thread that called
/// ZarvoCommand; all may be empty.
struct RunHooks
{
    std::function<bool()> cancelled;                                    ///< true: stop the child
    std::function<void(const std::shared_ptr<ChildProcess> &)> started; ///< once, when the child runs
    std::function<void()> tick;                                         ///< once a poll, while the child runs
};

/// What a run may use beyond its command line.
struct RunLimits
{
    /// Bytes of standard output, and of standard error, that are kept in memory. A child that has written
    /// more than this to either is ended and the run fails. 32 MB hold the list of 100,000 apps.
    qint64 output = qint64{32} << 20;
    /// The whole message of a run that failed because of it.
    QString outputExceeded = QStringLiteral("Модуль вывел слишком много данных. Повторите попытку.");
    /// When set, no file that the child writes can grow beyond this many bytes (the system ends a child that
    /// tries).
    std::optional<qint64> fileSize;
    /// When set, the child's whole environment, "NAME=value" each; otherwise it inherits this process's.
    std::optional<QList<QByteArray>> environment;
};

/// Runs the executable `path` (absolute) with `arguments` (no shell, UTF-8), waits for its end and returns
/// what it printed. Blocks the calling thread; any thread, any number of runs at once. The child has no
/// input, no descriptor but its two outputs, a session of its own, and ends with this process at the latest
/// (on macOS not when that crashes). Fails when the private folder for the outputs or the child cannot be
/// made (the system's reason), when `hooks.cancelled` says so, when `timeout` has passed (the kind of the
/// error tells it), or when the outputs outgrow `limits`. A child that ran to its end is a success of the
/// runner, whatever its `code`.
std::optional<ToolResult> ZarvoCommand(const QString &path, const QStringList &arguments, RunTimeout timeout,
                                       const RunHooks &hooks = {}, Error *error = nullptr,
                                       const RunLimits &limits = {});
