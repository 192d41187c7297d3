#include "app/zarvo_app.h"

#include "app/main_window.h"
#include "signin/sign_in_session.h"

#include <utility>

using namespace Qt::StringLiterals;

void ActiveTask::set(std::shared_ptr<ChildProcess> task)
{
    const std::lock_guard lock(m_mutex);
    m_task = std::move(task);
}

void ActiveTask::terminate() const
{
    std::shared_ptr<ChildProcess> task;
    {
        const std::lock_guard lock(m_mutex);
        task = m_task;
    }
    if (task)
        task->terminate();
}

ZarvoApp::ZarvoApp(const QString &resourcePath)
    : m_resourcePath(resourcePath)
{
}

ZarvoApp::~ZarvoApp()
{
    applicationWillTerminate();
}

QString ZarvoApp::tool(const QString &name) const
{
    return u"%1/Tools/%2"_s.arg(m_resourcePath, name);
}

std::optional<ToolResult> ZarvoApp::command(const QString &name, const QStringList &arguments,
                                            RunTimeout timeout, const std::function<void()> &tick,
                                            Error *error)
{
    RunHooks hooks;
    hooks.cancelled = [this] { return cancelled.load(); };
    hooks.started = [this](const std::shared_ptr<ChildProcess> &task) { activeTask.set(task); };
    hooks.tick = tick;
    return ZarvoCommand(tool(name), arguments, timeout, hooks, error);
}
