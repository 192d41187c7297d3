#include "app/piloted_program.h"

#include "support/scripted_tools.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>

#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr int kLongestEnd = 10'000; // ms
constexpr auto kLook = 1ms;

} // namespace

bool PilotedProgram::start(const QString &resources, const QString &destination, const QString &action,
                           const QString &archive)
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QFile::decodeName(ZARVO_PILOT), {resources, destination, action, archive});
    return m_process.waitForStarted();
}

PilotedProgram::~PilotedProgram()
{
    m_process.kill();
    m_process.waitForFinished();
    survivors(0ms);
}

bool PilotedProgram::waitForLine(const QByteArray &line, std::chrono::milliseconds patience)
{
    const QDeadlineTimer limit(patience);
    while (!m_printed.contains(line + '\n')) {
        if (m_process.bytesAvailable() == 0 &&
            !m_process.waitForReadyRead(static_cast<int>(limit.remainingTime())))
            return false;
        m_printed += m_process.readAllStandardOutput();
    }
    return true;
}

void PilotedProgram::signal(int number) const
{
    if (m_process.processId() > 0)
        ::kill(static_cast<pid_t>(m_process.processId()), number);
}

PilotedProgram::End PilotedProgram::waitForEnd()
{
    QElapsedTimer clock;
    clock.start();
    if (!m_process.waitForFinished(kLongestEnd)) {
        m_process.kill();
        m_process.waitForFinished();
    }
    const int code = m_process.exitCode();
    return {m_process.exitStatus() == QProcess::NormalExit ? code : -code,
            std::chrono::milliseconds(clock.elapsed())};
}

int PilotedProgram::survivors(std::chrono::milliseconds grace)
{
    const QDeadlineTimer limit(grace);
    for (pid_t ended = 1; ended > 0 || !limit.hasExpired();) {
        ended = ::waitpid(-1, nullptr, WNOHANG);
        if (ended < 0)
            return 0;
        if (ended == 0)
            std::this_thread::sleep_for(kLook);
    }
    // Whoever is left belongs to sessions of their own: each is ended as it comes.
    int count = 0;
    for (QList<pid_t> left = OwnChildren(); !left.isEmpty(); left = OwnChildren()) {
        ::kill(left.first(), SIGKILL);
        ::waitpid(left.first(), nullptr, 0);
        ++count;
    }
    return count;
}
