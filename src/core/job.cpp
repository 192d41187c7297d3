#include "core/job.h"

#include <utility>

using namespace Qt::StringLiterals;

Job::Job(const QString &resourcePath, Listeners listeners, std::shared_ptr<KnownSecrets> secrets)
    : m_resourcePath(resourcePath)
    , m_listeners(std::move(listeners))
    , m_secrets(std::move(secrets))
{
}

QString Job::tool(const QString &name) const
{
    return u"%1/Tools/%2"_s.arg(m_resourcePath, name);
}

std::optional<ToolResult> Job::command(const QString &name, const QStringList &arguments, RunTimeout timeout,
                                       const std::function<void()> &tick, Error *error)
{
    const auto setActiveTask = [this](const std::shared_ptr<ChildProcess> &task) {
        const std::lock_guard lock(m_mutex);
        m_activeTask = task;
    };
    RunHooks hooks;
    hooks.cancelled = [this] { return isCancelled(); };
    hooks.started = setActiveTask;
    hooks.tick = tick;
    auto result = ZarvoCommand(tool(name), arguments, timeout, hooks, error);
    setActiveTask(nullptr);
    return result;
}

void Job::setStatus(const QString &text) const
{
    if (m_listeners.status)
        m_listeners.status(text);
}

void Job::setTransfer(const QString &text) const
{
    if (m_listeners.transfer)
        m_listeners.transfer(text);
}

void Job::cancel()
{
    m_cancelled = true;
    const std::lock_guard lock(m_mutex);
    if (m_activeTask)
        m_activeTask->terminate();
}
