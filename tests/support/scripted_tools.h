// Tools played by the helper executable, and what a test wants to know about its own process. Linux: /proc is
// read. Everything here belongs to the test's main thread.
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QTemporaryDir>

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <initializer_list>

/// What a played tool does, written as one chain: when(…) begins a rule, the calls after it are its steps.
/// The whole chain takes effect at its end, at once, and replaces what the tool did before. A chain without
/// when() has one rule that fits every call. In texts and paths, "{--name}" stands for the argument after
/// --name.
class Scenario
{
public:
    explicit Scenario(QString toolPath);
    ~Scenario();
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;

    /// A rule for the calls whose arguments contain these words in this order. The first rule that fits
    /// serves.
    Scenario &when(std::initializer_list<QStringView> words);
    /// The rule serves so many calls; then the later ones have their turn.
    Scenario &times(int count);

    Scenario &prints(QStringView text) { return step(QStringLiteral("print"), text.toString()); }
    Scenario &printsBytes(const QByteArray &bytes)
    {
        return step(QStringLiteral("printBytes"), QString::fromLatin1(bytes.toBase64()));
    }
    Scenario &printsError(QStringView text)
    {
        return step(QStringLiteral("print"), text.toString(), toError());
    }
    /// So many bytes on standard output as fast as they go; a negative number never ends.
    Scenario &floods(qint64 bytes) { return step(QStringLiteral("flood"), bytes); }
    Scenario &floodsError(qint64 bytes) { return step(QStringLiteral("flood"), bytes, toError()); }
    Scenario &sleeps(std::chrono::milliseconds time) { return step(QStringLiteral("sleep"), in(time)); }
    Scenario &exits(int code) { return step(QStringLiteral("exit"), code); }
    Scenario &raises(int signal) { return step(QStringLiteral("raise"), signal); }
    Scenario &stops() { return raises(SIGSTOP); }
    Scenario &ignores(int signal) { return step(QStringLiteral("ignore"), signal); }
    Scenario &ignoresTermination() { return ignores(SIGTERM); }
    Scenario &closesOutputs() { return step(QStringLiteral("close"), true); }
    /// Calls itself something else, for whoever looks at the list of processes.
    Scenario &changesTitle(QStringView title) { return step(QStringLiteral("title"), title.toString()); }
    /// A file of so many (sparse) bytes grows at `path`, by default where the option --output says.
    Scenario &grows(qint64 bytes, std::chrono::milliseconds within, QStringView path = u"{--output}")
    {
        return step(QStringLiteral("grow"), bytes,
                    {{QStringLiteral("within"), in(within)}, {QStringLiteral("path"), path.toString()}});
    }
    /// Makes an empty file, which tells the test how far the tool has come.
    Scenario &touches(QStringView path) { return grows(0, {}, path); }
    Scenario &copies(const QString &file, QStringView path = u"{--output}")
    {
        return step(QStringLiteral("copy"), file, {{QStringLiteral("path"), path.toString()}});
    }
    /// Leaves a process that holds the outputs for this time; a stubborn one ignores SIGTERM and SIGHUP.
    Scenario &leavesGrandchild(std::chrono::milliseconds life, bool stubborn = false)
    {
        return step(QStringLiteral("grandchild"), in(life), {{QStringLiteral("stubborn"), stubborn}});
    }
    /// Waits until the file exists; gives up with an exit code of its own after the limit.
    Scenario &awaits(const QString &file, std::chrono::milliseconds limit = std::chrono::seconds(20))
    {
        return step(QStringLiteral("await"), file, {{QStringLiteral("limit"), in(limit)}});
    }
    /// Keeps making files in the folder of its standard output.
    Scenario &litters(std::chrono::milliseconds time) { return step(QStringLiteral("litter"), in(time)); }
    /// Prompts on the controlling terminal and logs a "terminal" event: {"opened": bool}.
    Scenario &promptsOnTerminal(QStringView prompt)
    {
        return step(QStringLiteral("terminal"), prompt.toString());
    }

    enum class Typing { Shown, Hidden, Raw };
    /// Prints a prompt without newline, waits for a line on standard input and logs a "line" event: {"text":
    /// …}. Hidden switches the terminal's echo off; Raw reads bytes and echoes stars; both lose what was
    /// typed ahead.
    Scenario &asks(QStringView prompt, Typing typing = Typing::Shown)
    {
        static constexpr QStringView kTypings[] = {u"shown", u"hidden", u"raw"};
        return step(QStringLiteral("ask"), prompt.toString(),
                    {{QStringLiteral("typing"), kTypings[static_cast<int>(typing)].toString()}});
    }

private:
    Scenario &step(const QString &name, const QJsonValue &value, QJsonObject details = {});
    static qint64 in(std::chrono::milliseconds time) { return time.count(); }
    static QJsonObject toError() { return {{QStringLiteral("to"), QStringLiteral("err")}}; }

    QString m_toolPath;
    QJsonArray m_rules;
};

/// A resource folder with played tools in `Tools/`. Gone, with its logs, when the object is.
class ScriptedTools
{
public:
    ScriptedTools();

    /// The resource folder.
    QString path() const { return m_folder.path(); }
    QString toolPath(const QString &name) const;
    /// A path inside the resource folder, for the files that steps await or copy.
    QString filePath(const QString &name) const { return m_folder.filePath(name); }
    /// Makes an empty file, for a tool that awaits it.
    void touch(const QString &name) const;

    /// Installs the tool when it is not there, and begins its (new) scenario. Counts of served calls start
    /// anew, the log goes on.
    Scenario add(const QString &name);

    /// What the tool logged for `event`: "call" ("arguments", "environment", "folder", "descriptors",
    /// "nullInput", "session", "parent", "blocked", "ignored"), "terminal", "line", "grandchild"; each with
    /// "pid".
    QList<QJsonObject> events(const QString &name, QStringView event) const;
    /// The arguments of all its calls, in order.
    QList<QStringList> calls(const QString &name) const;
    /// Runs the event loop until the tool has been called so often; false when that did not happen in time.
    bool waitForCalls(const QString &name, qsizetype count) const
    {
        return waitForEvents(name, u"call", count);
    }
    bool waitForEvents(const QString &name, QStringView event, qsizetype count,
                       std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

private:
    QTemporaryDir m_folder;
};

/// TMPDIR points to a fresh folder while the object lives.
class TemporaryTmpdir
{
public:
    TemporaryTmpdir();
    ~TemporaryTmpdir();
    TemporaryTmpdir(const TemporaryTmpdir &) = delete;
    TemporaryTmpdir &operator=(const TemporaryTmpdir &) = delete;

    QString path() const { return m_folder.path(); }
    /// The names of what is left in it.
    QStringList leftovers() const;

private:
    QTemporaryDir m_folder;
    QByteArray m_before;
};

/// The children of this process, those that wait to be reaped included.
QList<pid_t> OwnChildren();
/// Both without what Qt keeps for its pool of threads, half a minute each.
qsizetype OwnDescriptorCount();
qsizetype OwnThreadCount();
/// False for a process that has ended, also when nobody has reaped it yet.
bool IsProcessAlive(pid_t pid);
/// The names of the folders directly in `folder` that carry the name of a private one: `prefix` and an
/// identifier.
QStringList PrivateFoldersIn(const QString &folder, QStringView prefix = {});
