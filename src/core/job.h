// What the program lends to a piece of work. All but the constructor: any thread, several at once.
#pragma once

#include "core/child_process.h"
#include "core/error.h"
#include "core/tool_runner.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class KnownSecrets;

/// One piece of work: where the tools are, who hears how far it is, and whether it is still wanted. Shared by
/// the thread that works and the one that may cancel it; made anew for each piece.
class Job
{
public:
    /// Who hears of the work, on the thread that works. Each may be empty.
    struct Listeners
    {
        std::function<void(const QString &)> status;
        std::function<void(const QString &)> transfer;
    };

    /// `resourcePath` is the folder that holds Tools/.
    explicit Job(const QString &resourcePath, Listeners listeners = {},
                 std::shared_ptr<KnownSecrets> secrets = nullptr);
    ~Job() = default;
    Job(const Job &) = delete;
    Job &operator=(const Job &) = delete;

    /// Where a tool lies; whether it does is not looked at.
    QString tool(const QString &name) const;
    /// Runs a tool as ZarvoCommand does, until it ends, `timeout` has passed, or the work is cancelled.
    /// Blocks.
    std::optional<ToolResult> command(const QString &name, const QStringList &arguments, RunTimeout timeout,
                                      const std::function<void()> &tick = {}, Error *error = nullptr);

    void setStatus(const QString &text) const;
    void setTransfer(const QString &text) const;

    /// True when nobody waits for the outcome any more.
    bool isCancelled() const { return m_cancelled; }
    /// Says so, and asks the child that runs to end. Waits for nothing.
    void cancel();

    /// What must not be shown of the user, or null; grows with what the work learns. Of the thread that
    /// works.
    KnownSecrets *secrets() const { return m_secrets.get(); }

private:
    QString m_resourcePath;
    Listeners m_listeners;
    std::shared_ptr<KnownSecrets> m_secrets;
    std::atomic<bool> m_cancelled = false;
    std::mutex m_mutex;
    std::shared_ptr<ChildProcess> m_activeTask; // what the work waits for, behind the mutex
};
