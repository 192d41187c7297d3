// The device tool: answers one question about connected phones, or installs one app, and ends.
#include "answer.h"
#include "command_line.h"
#include "commands.h"
#include "core/standard_streams.h"
#include "crash_guard.h"
#include "deadlines.h"
#include "diagnostics.h"
#include "watch.h"

#include <QFile>

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

using Command = Request::Command;

namespace {

constexpr unsigned int kLastWords = 1; // s, for the answer of a run that is out of time or told to stop

std::chrono::milliseconds timeFor(Command command)
{
    const Deadlines &deadlines = CurrentDeadlines();
    switch (command) {
    case Command::Devices:
        return deadlines.devices;
    case Command::Install:
        return deadlines.install;
    default:
        return deadlines.request;
    }
}

void answerRequest(const Request &request, Watch &watch, Answer &answer)
{
    switch (request.command) {
    case Command::Devices:
        return AnswerDevices(watch, answer);
    case Command::Apps:
        return AnswerApps(request.phone, watch, answer);
    case Command::Info:
        return AnswerInfo(request.phone, watch, answer);
    case Command::Battery:
        return AnswerBattery(request.phone, watch, answer);
    case Command::Install:
        return AnswerInstall(request.phone, request.file, watch, answer);
    case Command::Help:
    case Command::Version:
        break;
    }
}

/// Ends the program in a while, whatever its threads wait for: one may be stuck in writing to somebody who
/// has stopped reading.
void endSoon()
{
    std::signal(SIGALRM, [](int) { ::_exit(1); });
    ::alarm(kLastWords);
}

int serve(const Request &request)
{
    Answer answer(request.command == Command::Install);
    const CrashGuard guard(answer);
    Watch watch(timeFor(request.command), [&answer](Fault fault) {
        endSoon();
        answer.fail(FailureOf(fault));
        std::_Exit(answer.exitStatus()); // the other threads may be anywhere
    });
    answerRequest(request, watch, answer);
    return answer.exitStatus();
}

int show(const QString &text)
{
    return std::fputs(qUtf8Printable(text), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    ReplaceMissingStandardStreams();
    // A connection that breaks during a write is to be an error, not the end.
    std::signal(SIGPIPE, SIG_IGN);
    QStringList words;
    for (int i = 1; i < argc; ++i)
        words.append(QFile::decodeName(argv[i]));
    const auto request = ParseCommandLine(words);
    if (!request) {
        Answer(false).fail(FailureOf(Fault::BadCommand));
        return 1;
    }
    if (request->command == Command::Help)
        return show(HelpText());
    if (request->command == Command::Version)
        return show(VersionText());
    if (request->verbose)
        EnableDiagnostics();
    return serve(*request);
}
