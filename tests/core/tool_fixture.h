// A fresh tool, and a fresh folder for temporary files, for each test of running tools.
#pragma once

#include "core/tool_runner.h"
#include "support/scripted_tools.h"

#include <QFileInfo>
#include <QObject>
#include <QTest>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>

/// Steps of a played tool, as a column of test data.
using Script = std::function<void(Scenario &)>;

class ToolFixture : public QObject
{
    Q_OBJECT

protected:
    /// A limit that no sound run reaches.
    static constexpr std::chrono::seconds kAmple{120};

    std::optional<ToolResult> run(const QStringList &arguments = {}, const RunHooks &hooks = {},
                                  Error *error = nullptr, RunTimeout timeout = kAmple,
                                  const RunLimits &limits = {}) const
    {
        return ZarvoCommand(path(), arguments, timeout, hooks, error, limits);
    }

    QString path() const { return m_tools->toolPath(QStringLiteral("tool")); }
    Scenario tool() { return m_tools->add(QStringLiteral("tool")); }
    void play(const Script &script)
    {
        Scenario scenario = tool();
        script(scenario);
    }
    QString file(const QString &name) const { return m_tools->filePath(name); }
    bool isThere(const QString &name) const { return QFileInfo::exists(file(name)); }
    QList<QJsonObject> events(QStringView event) const
    {
        return m_tools->events(QStringLiteral("tool"), event);
    }
    /// Whether the tool, or what it started, lives on.
    bool isAnythingAlive() const
    {
        const auto processes = events(u"call") + events(u"grandchild");
        return std::any_of(processes.begin(), processes.end(),
                           [](const auto &entry) { return IsProcessAlive(pidOf(entry)); });
    }
    static pid_t pidOf(const QJsonObject &entry) { return entry.value(QLatin1StringView("pid")).toInt(); }

    std::optional<ScriptedTools> m_tools;
    std::optional<TemporaryTmpdir> m_tmpdir;

private Q_SLOTS:
    void init()
    {
        m_tmpdir.reset(); // first of all, or the tools would lie in it
        m_tools.emplace();
        m_tmpdir.emplace();
    }

    // Whatever a test did: no folder stays, and every child is reaped once it has ended.
    void cleanup()
    {
        QCOMPARE(m_tmpdir->leftovers(), QStringList());
        for (const QJsonObject &process : events(u"call") + events(u"grandchild")) {
            if (IsProcessAlive(pidOf(process)))
                ::kill(pidOf(process), SIGKILL);
        }
        QTRY_COMPARE(OwnChildren(), QList<pid_t>());
    }
};
