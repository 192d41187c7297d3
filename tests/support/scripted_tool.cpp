// Plays any command-line tool. Installed under the tool's name, it reads `<own path>.json`, does what the
// first fitting rule says, and appends to `<own path>.log` what it was given, one JSON object a line.
//
// Scenario: {"rules": [{"when": [words], "times": n, "steps": [{"<step>": value, …}, …]}, …]}. A rule fits
// when its words occur in this order among the arguments; "times" bounds how many calls it serves. The steps
// are listed in kSteps. In texts and paths, "{--name}" stands for the argument after --name.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStringList>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <thread>

using namespace Qt::StringLiterals;
using std::chrono::milliseconds;

extern "C" char **environ; // not declared by every libc

namespace {

constexpr int kNoRuleFits = 97;
constexpr int kAwaitedInVain = 98;
constexpr int kBadScenario = 99;
constexpr milliseconds kPause{5};
constexpr milliseconds kAwaitLimit{20'000};

char *ownName = nullptr; // argv[0]

struct Call
{
    QString self;
    QStringList arguments;
};

[[noreturn]] void giveUp(int code, const QString &reason)
{
    const QByteArray text = u"scripted tool: %1\n"_s.arg(reason).toUtf8();
    (void)!::write(STDERR_FILENO, text.constData(), static_cast<size_t>(text.size()));
    ::_exit(code);
}

bool writeAll(int descriptor, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), static_cast<size_t>(bytes.size()));
        if (written <= 0)
            return false;
        bytes = bytes.sliced(written);
    }
    return true;
}

// One write() to a file opened for appending: lines of calls that run at once do not mix.
void log(const Call &call, QJsonObject entry)
{
    entry[u"pid"_s] = static_cast<int>(::getpid());
    const QByteArray path = QFile::encodeName(call.self + u".log"_s);
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    writeAll(file, QJsonDocument(entry).toJson(QJsonDocument::Compact) + '\n');
    ::close(file);
}

QString optionValue(const Call &call, const QString &option)
{
    const qsizetype at = call.arguments.indexOf(option);
    return at < 0 ? QString() : call.arguments.value(at + 1);
}

QString expanded(const Call &call, QString text)
{
    static const QRegularExpression placeholder(u"\\{(--[a-z-]+)\\}"_s);
    for (auto match = placeholder.match(text); match.hasMatch(); match = placeholder.match(text))
        text.replace(match.captured(0), optionValue(call, match.captured(1)));
    return text;
}

int descriptorNamed(const QJsonObject &step)
{
    return step.value("to"_L1).toString() == "err"_L1 ? STDERR_FILENO : STDOUT_FILENO;
}

milliseconds inMilliseconds(const QJsonValue &value)
{
    return milliseconds(value.toInteger());
}

QJsonArray signalsIn(const QByteArray &field)
{
    QJsonArray numbers;
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return numbers;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (!line.startsWith(field))
            continue;
        const quint64 mask = line.mid(field.size()).trimmed().toULongLong(nullptr, 16);
        for (int number = 1; number <= 64; ++number) {
            if (number == 32 || number == 33)
                continue; // the C library's own: it lets nobody set them, and sanitizers leave them ignored
            if (mask >> (number - 1) & 1U)
                numbers.append(number);
        }
    }
    return numbers;
}

QJsonObject openDescriptors()
{
    QJsonObject descriptors;
    for (int number = 0; number < 1024; ++number) {
        if (::fcntl(number, F_GETFD) >= 0)
            descriptors[QString::number(number)] = QFile::symLinkTarget(u"/proc/self/fd/%1"_s.arg(number));
    }
    return descriptors;
}

QJsonArray environment()
{
    QJsonArray variables;
    for (char **variable = environ; *variable; ++variable)
        variables.append(QString::fromLocal8Bit(*variable));
    return variables;
}

QJsonObject whatWasGiven(const Call &call)
{
    const QJsonObject descriptors = openDescriptors();
    return {{u"event"_s, u"call"_s},
            {u"arguments"_s, QJsonArray::fromStringList(call.arguments)},
            {u"environment"_s, environment()},
            {u"folder"_s, QDir::currentPath()},
            {u"descriptors"_s, descriptors},
            {u"nullInput"_s, descriptors.value("0"_L1).toString() == "/dev/null"_L1},
            {u"session"_s, static_cast<int>(::getsid(0))},
            {u"parent"_s, static_cast<int>(::getppid())},
            {u"blocked"_s, signalsIn("SigBlk:")},
            {u"ignored"_s, signalsIn("SigIgn:")}};
}

void print(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    writeAll(descriptorNamed(step), expanded(call, value.toString()).toUtf8());
}

void printBytes(const Call &, const QJsonObject &step, const QJsonValue &value)
{
    writeAll(descriptorNamed(step), QByteArray::fromBase64(value.toString().toLatin1()));
}

// A negative number floods for ever.
void flood(const Call &, const QJsonObject &step, const QJsonValue &value)
{
    const QByteArray block(1 << 16, 'x');
    for (qint64 left = value.toInteger(); left != 0;) {
        const qint64 size = left < 0 ? block.size() : std::min<qint64>(left, block.size());
        if (!writeAll(descriptorNamed(step), QByteArrayView(block).first(size)))
            return;
        left = left < 0 ? left : left - size;
    }
}

void sleepFor(const Call &, const QJsonObject &, const QJsonValue &value)
{
    std::this_thread::sleep_for(inMilliseconds(value));
}

void exitWith(const Call &, const QJsonObject &, const QJsonValue &value)
{
    ::_exit(value.toInt());
}

void raiseSignal(const Call &, const QJsonObject &, const QJsonValue &value)
{
    ::signal(value.toInt(), SIG_DFL);
    ::raise(value.toInt());
}

void ignoreSignal(const Call &, const QJsonObject &, const QJsonValue &value)
{
    ::signal(value.toInt(), SIG_IGN);
}

void closeOutputs(const Call &, const QJsonObject &, const QJsonValue &)
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::close(standard);
}

// Both names that others see: the one of the thread and the one of the command line, as long as the old one.
void changeTitle(const Call &, const QJsonObject &, const QJsonValue &value)
{
    const QByteArray title = value.toString().toUtf8();
    ::prctl(PR_SET_NAME, title.constData());
    for (qsizetype i = 0; ownName[i] != '\0'; ++i)
        ownName[i] = title[i % title.size()];
}

// {"grow": bytes, "within": ms, "path": text}: the file grows as a download does, without filling the disk.
void grow(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    constexpr int kSlices = 20;
    const QByteArray path = QFile::encodeName(expanded(call, step.value("path"_L1).toString()));
    if (path.isEmpty())
        return; // the call names none
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0)
        giveUp(kBadScenario, u"cannot create the growing file"_s);
    for (int slice = 1; slice <= kSlices; ++slice) {
        if (::ftruncate(file, value.toInteger() * slice / kSlices) != 0)
            giveUp(kBadScenario, u"cannot grow the file"_s);
        std::this_thread::sleep_for(inMilliseconds(step.value("within"_L1)) / kSlices);
    }
    ::close(file);
}

// {"copy": file, "path": text}
void copyFile(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    const QString target = expanded(call, step.value("path"_L1).toString());
    QFile::remove(target);
    if (!QFile::copy(value.toString(), target))
        giveUp(kBadScenario, u"cannot copy to %1"_s.arg(target));
}

// {"grandchild": ms, "stubborn": true}: a process of its own that keeps the outputs open; a stubborn one
// heeds no polite signal.
void grandchild(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    if (::fork() != 0)
        return;
    for (const int polite : {SIGTERM, SIGHUP})
        ::signal(polite, step.value("stubborn"_L1).toBool() ? SIG_IGN : SIG_DFL);
    log(call, {{u"event"_s, u"grandchild"_s}});
    std::this_thread::sleep_for(inMilliseconds(value));
    ::_exit(0);
}

// {"await": path, "limit": ms}: until the file exists.
void awaitFile(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    const QString path = expanded(call, value.toString());
    const auto limit = step.contains("limit"_L1) ? inMilliseconds(step.value("limit"_L1)) : kAwaitLimit;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!QFileInfo::exists(path)) {
        if (std::chrono::steady_clock::now() > deadline)
            giveUp(kAwaitedInVain, u"%1 did not appear"_s.arg(path));
        std::this_thread::sleep_for(kPause);
    }
}

// New files beside the standard output, for so many milliseconds.
void litter(const Call &, const QJsonObject &, const QJsonValue &value)
{
    const QString folder = QFileInfo(QFile::symLinkTarget(u"/proc/self/fd/1"_s)).path();
    const auto deadline = std::chrono::steady_clock::now() + inMilliseconds(value);
    for (int number = 0; std::chrono::steady_clock::now() < deadline; ++number) {
        const QByteArray path = QFile::encodeName(u"%1/litter%2"_s.arg(folder).arg(number));
        ::close(::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

// Speaks to the terminal itself, as password prompts do; the log says whether there was one.
void promptOnTerminal(const Call &call, const QJsonObject &, const QJsonValue &value)
{
    const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    log(call, {{u"event"_s, u"terminal"_s}, {u"opened"_s, terminal >= 0}});
    if (terminal < 0)
        return;
    writeAll(terminal, value.toString().toUtf8());
    ::close(terminal);
}

QByteArray lineFromInput(bool stars)
{
    QByteArray line;
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) == 1 && byte != '\n' && byte != '\r') {
        line.append(byte);
        if (stars)
            writeAll(STDOUT_FILENO, "*");
    }
    return line;
}

// {"ask": prompt, "typing": "shown" | "hidden" | "raw"}: hidden switches the echo off, raw reads byte by byte
// and echoes stars. What was typed ahead of a hidden or raw prompt is lost, as with the tools that do so.
void ask(const Call &call, const QJsonObject &step, const QJsonValue &value)
{
    const QString typing = step.value("typing"_L1).toString();
    termios before = {};
    const bool change = typing != "shown"_L1 && !typing.isEmpty() && ::tcgetattr(STDIN_FILENO, &before) == 0;
    termios during = before;
    during.c_lflag &= ~tcflag_t{ECHO};
    if (typing == "raw"_L1)
        ::cfmakeraw(&during);
    if (change)
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &during);
    print(call, step, value);
    const QByteArray line = lineFromInput(typing == "raw"_L1);
    if (change)
        ::tcsetattr(STDIN_FILENO, TCSANOW, &before);
    log(call, {{u"event"_s, u"line"_s}, {u"text"_s, QString::fromUtf8(line)}});
}

struct Step
{
    QLatin1StringView name;
    void (*perform)(const Call &, const QJsonObject &step, const QJsonValue &value) = nullptr;
};

constexpr std::array kSteps{
    Step{"print"_L1, print},               // text; "to": "err" for the other output, here and below
    Step{"printBytes"_L1, printBytes},     // base64
    Step{"flood"_L1, flood},               // bytes
    Step{"sleep"_L1, sleepFor},            // milliseconds
    Step{"exit"_L1, exitWith},             // code
    Step{"raise"_L1, raiseSignal},         // signal; SIGSTOP stops the tool until it is continued
    Step{"ignore"_L1, ignoreSignal},       // signal
    Step{"close"_L1, closeOutputs},        // true
    Step{"title"_L1, changeTitle},         // text
    Step{"grow"_L1, grow},                 // bytes
    Step{"copy"_L1, copyFile},             // file
    Step{"grandchild"_L1, grandchild},     // its life in milliseconds
    Step{"await"_L1, awaitFile},           // file
    Step{"litter"_L1, litter},             // milliseconds
    Step{"terminal"_L1, promptOnTerminal}, // prompt
    Step{"ask"_L1, ask},                   // prompt
};

void perform(const Call &call, const QJsonObject &step)
{
    for (const Step &known : kSteps) {
        if (step.contains(known.name))
            return known.perform(call, step, step.value(known.name));
    }
    giveUp(kBadScenario, u"a step that is not known"_s);
}

bool fits(const QJsonObject &rule, const QStringList &arguments)
{
    auto from = arguments.begin();
    for (const QJsonValue word : rule.value("when"_L1).toArray()) {
        from = std::find(from, arguments.end(), word.toString());
        if (from == arguments.end())
            return false;
        ++from;
    }
    return true;
}

// Counts the calls that each rule has served in a file which is also the lock.
QJsonObject chooseRule(const Call &call, const QJsonArray &rules)
{
    QFile counts(call.self + u".counts"_s);
    if (!counts.open(QIODevice::ReadWrite) || ::flock(counts.handle(), LOCK_EX) != 0)
        giveUp(kBadScenario, u"cannot count the calls"_s);
    QJsonObject served = QJsonDocument::fromJson(counts.readAll()).object();
    for (qsizetype i = 0; i < rules.size(); ++i) {
        QJsonObject rule = rules[i].toObject();
        const QString key = QString::number(i);
        const int before = served.value(key).toInt();
        if (!fits(rule, call.arguments) ||
            (rule.contains("times"_L1) && before >= rule.value("times"_L1).toInt()))
            continue;
        served[key] = before + 1;
        counts.resize(0);
        counts.seek(0);
        counts.write(QJsonDocument(served).toJson(QJsonDocument::Compact));
        return rule;
    }
    giveUp(kNoRuleFits, u"no rule for: %1"_s.arg(call.arguments.join(u' ')));
}

} // namespace

int main(int argc, char **argv)
{
    Call call;
    ownName = argv[0];
    for (int i = 1; i < argc; ++i)
        call.arguments.append(QString::fromLocal8Bit(argv[i]));
    const QJsonObject given = whatWasGiven(call); // before anything else is opened
    call.self = QFile::symLinkTarget(u"/proc/self/exe"_s);

    QFile scenario(call.self + u".json"_s);
    if (!scenario.open(QIODevice::ReadOnly))
        giveUp(kBadScenario, u"no scenario"_s);
    const QJsonArray rules = QJsonDocument::fromJson(scenario.readAll()).object().value("rules"_L1).toArray();
    scenario.close();
    log(call, given);
    const QJsonObject rule = chooseRule(call, rules);
    for (const QJsonValue step : rule.value("steps"_L1).toArray())
        perform(call, step.toObject());
    return 0;
}
