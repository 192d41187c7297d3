// A phone made of software: speaks the protocols of the cable on a UNIX socket.
#include "bus.h"
#include "server.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTemporaryDir>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

int signalPipe[2];

void passOn(int signal)
{
    const int reason = errno;
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = reason;
}

bool catchSignals()
{
    if (::pipe(signalPipe) != 0)
        return false;
    for (const int end : signalPipe)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        std::signal(signal, passOn);
    std::signal(SIGPIPE, SIG_IGN);
    return true;
}

int fail(const QString &reason)
{
    std::fprintf(stderr, "virtual_phone: %s\n", qUtf8Printable(reason));
    return 1;
}

int serve(const QString &socket, const QString &configFile, const QString &state)
{
    QString error;
    const auto config = readConfig(configFile, &error);
    if (!config)
        return fail(error);
    Bus bus(state);
    bus.apply(*config);
    Server server(bus);
    if (!catchSignals() || !server.listen(socket))
        return fail(u"%1: %2"_s.arg(socket, QString::fromLocal8Bit(std::strerror(errno))));
    std::puts("ready");
    std::fflush(stdout);
    server.run(signalPipe[0], [&](char signal) {
        if (signal != SIGHUP)
            return false;
        QString fault;
        if (const auto changed = readConfig(configFile, &fault))
            bus.apply(*changed);
        else
            fail(fault + u"; nothing is changed"_s);
        std::puts(fault.isEmpty() ? "reread" : "unchanged");
        std::fflush(stdout);
        return true;
    });
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Plays phones on a cable. Prints \"ready\" when it listens; SIGHUP reads the "
        "configuration again and prints \"reread\" or \"unchanged\"."_s);
    const QCommandLineOption socket(u"socket"_s, u"UNIX socket to listen on."_s, u"path"_s);
    const QCommandLineOption config(u"config"_s, u"What the phones are like."_s, u"file"_s);
    const QCommandLineOption state(
        u"state"_s, u"Folder that the phones keep files in; else they forget them."_s, u"folder"_s);
    parser.addOptions({socket, config, state});
    parser.addHelpOption();
    parser.process(application);
    if (!parser.isSet(socket) || !parser.isSet(config))
        return fail(u"--socket and --config are needed."_s);
    std::optional<QTemporaryDir> temporary;
    if (!parser.isSet(state) && !temporary.emplace().isValid())
        return fail(temporary->errorString());
    return serve(parser.value(socket), parser.value(config),
                 temporary ? temporary->path() : parser.value(state));
}
