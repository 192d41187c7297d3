#include "support/scripted_tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>
#include <QTest>
#include <QUuid>

#include <unistd.h>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;
using std::chrono::milliseconds;

namespace {

// A test that cannot set up its tools must not go on and pass for want of them.
void require(bool done, const char *what)
{
    if (!done)
        qFatal("scripted tools: cannot %s", what);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void install(const QString &path)
{
    const QString helper = QString::fromLocal8Bit(ZARVO_SCRIPTED_TOOL);
    const QByteArray from = QFile::encodeName(helper);
    // Linked where possible: a copy that is being written while another thread forks cannot be run for a
    // moment.
    if (::link(from.constData(), QFile::encodeName(path).constData()) != 0)
        require(QFile::copy(helper, path), "install the helper");
}

// The fields of /proc/<pid>/stat after the name of the program, which may itself hold blanks and brackets.
QList<QByteArray> statFields(const QString &pid)
{
    const QByteArray stat = readFile(u"/proc/%1/stat"_s.arg(pid));
    return stat.mid(stat.lastIndexOf(')') + 2).split(' ');
}

} // namespace

Scenario::Scenario(QString toolPath)
    : m_toolPath(std::move(toolPath))
{
}

Scenario::~Scenario()
{
    QFile::remove(m_toolPath + u".counts"_s);
    QSaveFile file(m_toolPath + u".json"_s);
    require(file.open(QIODevice::WriteOnly), "write a scenario");
    file.write(QJsonDocument(QJsonObject{{u"rules"_s, m_rules}}).toJson());
    require(file.commit(), "write a scenario");
}

Scenario &Scenario::when(std::initializer_list<QStringView> words)
{
    QJsonArray list;
    for (const QStringView word : words)
        list.append(word.toString());
    m_rules.append(QJsonObject{{u"when"_s, list}});
    return *this;
}

Scenario &Scenario::times(int count)
{
    QJsonObject rule = m_rules.takeAt(m_rules.size() - 1).toObject();
    rule[u"times"_s] = count;
    m_rules.append(rule);
    return *this;
}

Scenario &Scenario::step(const QString &name, const QJsonValue &value, QJsonObject details)
{
    if (m_rules.isEmpty())
        when({});
    details[name] = value;
    QJsonObject rule = m_rules.takeAt(m_rules.size() - 1).toObject();
    QJsonArray steps = rule.value("steps"_L1).toArray();
    steps.append(details);
    rule[u"steps"_s] = steps;
    m_rules.append(rule);
    return *this;
}

ScriptedTools::ScriptedTools()
{
    require(m_folder.isValid() && QDir(m_folder.path()).mkdir(u"Tools"_s), "make the resource folder");
}

QString ScriptedTools::toolPath(const QString &name) const
{
    return m_folder.filePath(u"Tools/"_s + name);
}

void ScriptedTools::touch(const QString &name) const
{
    QFile file(filePath(name));
    require(file.open(QIODevice::WriteOnly), "make an awaited file");
}

Scenario ScriptedTools::add(const QString &name)
{
    const QString path = toolPath(name);
    if (!QFile::exists(path))
        install(path);
    return Scenario(path);
}

QList<QJsonObject> ScriptedTools::events(const QString &name, QStringView event) const
{
    QList<QJsonObject> found;
    for (const QByteArray &line : readFile(toolPath(name) + u".log"_s).split('\n')) {
        const QJsonObject entry = QJsonDocument::fromJson(line).object();
        if (entry.value("event"_L1).toString() == event)
            found.append(entry);
    }
    return found;
}

QList<QStringList> ScriptedTools::calls(const QString &name) const
{
    QList<QStringList> all;
    for (const QJsonObject &call : events(name, u"call")) {
        QStringList arguments;
        for (const QJsonValue argument : call.value("arguments"_L1).toArray())
            arguments.append(argument.toString());
        all.append(arguments);
    }
    return all;
}

bool ScriptedTools::waitForEvents(const QString &name, QStringView event, qsizetype count,
                                  milliseconds limit) const
{
    return QTest::qWaitFor([&] { return events(name, event).size() >= count; },
                           static_cast<int>(limit.count()));
}

TemporaryTmpdir::TemporaryTmpdir()
    : m_before(qgetenv("TMPDIR"))
{
    require(m_folder.isValid(), "make a folder for temporary files");
    qputenv("TMPDIR", QFile::encodeName(m_folder.path()));
}

TemporaryTmpdir::~TemporaryTmpdir()
{
    if (m_before.isNull())
        qunsetenv("TMPDIR");
    else
        qputenv("TMPDIR", m_before);
}

QStringList TemporaryTmpdir::leftovers() const
{
    return QDir(path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

QList<pid_t> OwnChildren()
{
    QList<pid_t> children;
    const QByteArray own = QByteArray::number(static_cast<int>(::getpid()));
    for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        bool isNumber = false;
        const int pid = entry.toInt(&isNumber);
        if (isNumber && statFields(entry).value(1) == own)
            children.append(pid);
    }
    return children;
}

qsizetype OwnDescriptorCount()
{
    const QFileInfoList all = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::AllEntries | QDir::System);
    return std::count_if(all.begin(), all.end(), [](const QFileInfo &one) {
        const QString target = one.symLinkTarget(); // none: the one that reads the folder, closed by now
        return one.isSymLink() && !target.isEmpty() && !target.endsWith(u"anon_inode:[eventfd]");
    });
}

qsizetype OwnThreadCount()
{
    const QStringList all = QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::count_if(all.begin(), all.end(), [](const QString &task) {
        return !readFile(u"/proc/self/task/%1/comm"_s.arg(task)).startsWith("Thread (pooled)");
    });
}

bool IsProcessAlive(pid_t pid)
{
    const QByteArray state = statFields(QString::number(pid)).value(0);
    return !state.isEmpty() && state != "Z" && state != "X";
}

QStringList PrivateFoldersIn(const QString &folder, QStringView prefix)
{
    QStringList found;
    for (const QString &name : QDir(folder).entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (name.startsWith(prefix) && !QUuid::fromString(QStringView(name).sliced(prefix.size())).isNull())
            found.append(name);
    }
    return found;
}
