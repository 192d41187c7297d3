#include "app/piloted_program.h"

#include <QDirIterator>
#include <QFile>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto kProgramPatience = 30s; // for a loaded machine under a sanitizer
constexpr auto kLongestEnd = 10s;
constexpr auto kLook = 1ms;

// The pilot ($1) with a file system of its own on its destination ($3). Anybody may have one in a user
// namespace, unless the system forbids those; root needs none, and where / is no mount point (chroot) its
// propagation cannot be changed.
constexpr char kOnOwnDisk[] = R"(
for way in "--user --map-root-user" "" "--propagation unchanged"; do
    if unshare $way --mount true 2>/dev/null; then
        exec unshare $way --mount sh -c 'mount -t tmpfs -o "$0" none "$3" && exec "$@"' "$0" "$@"
    fi
done
echo "the system allows no file system of one's own: a full disk cannot be played" >&2
exit 1)";

std::vector<QByteArray> commandLine(const QStringList &words, const QByteArray &smallDisk)
{
    std::vector<QByteArray> line;
    if (!smallDisk.isEmpty())
        line = {"sh", "-c", kOnOwnDisk, smallDisk};
    line.push_back(ZARVO_PILOT);
    for (const QString &word : words)
        line.push_back(QFile::encodeName(word));
    return line;
}

} // namespace

bool PilotedProgram::start(const QString &resources, const QString &destination, const QString &action,
                           const QString &archive, const QByteArray &smallDisk)
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    ::signal(SIGPIPE, SIG_IGN);
    FileDescriptor input;
    FileDescriptor output;
    if (!makePipe(input, m_input) || !makePipe(m_output, output))
        return false;
    std::vector<QByteArray> line = commandLine({resources, destination, action, archive}, smallDisk);
    std::vector<char *> arguments;
    arguments.reserve(line.size() + 1);
    for (QByteArray &word : line)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    m_printed.clear();
    m_pid = ::fork();
    if (m_pid == 0) {
        ::dup2(input.get(), STDIN_FILENO);
        ::dup2(output.get(), STDOUT_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    return m_pid > 0;
}

PilotedProgram::~PilotedProgram()
{
    signal(SIGKILL);
    if (m_pid > 0)
        ::waitpid(m_pid, nullptr, 0);
    survivors(0ms);
}

bool PilotedProgram::waitForLine(QByteArrayView line)
{
    const auto until = Clock::now() + kProgramPatience;
    while (!m_printed.contains(QByteArray(line.toByteArray() + '\n'))) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd readable{m_output.get(), POLLIN, 0};
        char bytes[256];
        if (left <= 0 || ::poll(&readable, 1, static_cast<int>(left)) <= 0)
            return false;
        const ssize_t got = ::read(m_output.get(), bytes, sizeof bytes);
        if (got <= 0)
            return false;
        m_printed.append(bytes, got);
    }
    return true;
}

QString PilotedProgram::pathInside(const QString &path) const
{
    return QStringLiteral("/proc/%1/root%2").arg(m_pid).arg(path);
}

void PilotedProgram::signal(int number) const
{
    if (m_pid > 0)
        ::kill(m_pid, number);
}

void PilotedProgram::tell(QByteArrayView line) const
{
    const QByteArray whole = line.toByteArray() + '\n';
    [[maybe_unused]] const ssize_t written =
        ::write(m_input.get(), whole.constData(), static_cast<size_t>(whole.size()));
}

PilotedProgram::End PilotedProgram::waitForEnd()
{
    const auto began = Clock::now();
    int status = 0;
    while (::waitpid(m_pid, &status, WNOHANG) == 0) {
        if (Clock::now() - began > kLongestEnd)
            signal(SIGKILL);
        std::this_thread::sleep_for(kLook);
    }
    m_pid = -1;
    const auto after = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), after};
}

int PilotedProgram::survivors(std::chrono::milliseconds grace)
{
    const auto until = Clock::now() + grace;
    while (true) {
        const pid_t ended = ::waitpid(-1, nullptr, WNOHANG);
        if (ended < 0)
            return 0;
        if (ended > 0)
            continue;
        if (Clock::now() >= until)
            break;
        std::this_thread::sleep_for(kLook);
    }
    // Whoever is left belongs to sessions of their own: each is ended as it comes.
    int count = 0;
    QFile children(QStringLiteral("/proc/self/task/%1/children").arg(::getpid()));
    while (children.open(QIODevice::ReadOnly)) {
        const QByteArray list = children.readAll();
        children.close();
        if (list.isEmpty())
            break;
        for (const QByteArray &pid : list.simplified().split(' ')) {
            ::kill(pid.toInt(), SIGKILL);
            ::waitpid(pid.toInt(), nullptr, 0);
            ++count;
        }
    }
    return count;
}

QStringList FilesBelow(const QString &folder, const QString &pattern)
{
    QStringList found;
    QDirIterator walk(folder, {pattern}, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext())
        found.append(walk.next());
    return found;
}
