#include "signin/sign_in_terminal.h"

#ifdef __APPLE__
#include <util.h>
#else
#include <pty.h>
#endif
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr tcflag_t kEcho = ECHO | ECHONL;

bool addFlags(int descriptor, int get, int set, int flags)
{
    const int before = ::fcntl(descriptor, get);
    return before >= 0 && ::fcntl(descriptor, set, before | flags) == 0;
}

} // namespace

std::optional<TerminalPair> OpenSilentTerminal(Error *error)
{
    int master = -1;
    int slave = -1;
    const bool opened = ::openpty(&master, &slave, nullptr, nullptr, nullptr) == 0;
    TerminalPair pair{FileDescriptor(master), FileDescriptor(slave)};
    if (!opened || !addFlags(master, F_GETFD, F_SETFD, FD_CLOEXEC) ||
        !addFlags(slave, F_GETFD, F_SETFD, FD_CLOEXEC)) {
        Fail(error, ZarvoError(u"Не удалось открыть защищённый канал входа."_s));
        return std::nullopt;
    }
    if (!SilenceTerminal(slave, error))
        return std::nullopt;
    // A master that blocks would stop the window at the first read.
    if (!addFlags(master, F_GETFL, F_SETFL, O_NONBLOCK)) {
        Fail(error, ZarvoError(u"Не удалось открыть защищённый канал входа."_s));
        return std::nullopt;
    }
    return pair;
}

bool SilenceTerminal(int terminal, Error *error)
{
    termios attributes = {};
    if (::tcgetattr(terminal, &attributes) != 0)
        return Fail(error, ZarvoError(u"Не удалось настроить канал входа."_s));
    if ((attributes.c_lflag & kEcho) == 0)
        return true;
    attributes.c_lflag &= ~kEcho;
    if (::tcsetattr(terminal, TCSANOW, &attributes) != 0)
        return Fail(error, ZarvoError(u"Не удалось отключить эхо пароля."_s));
    return true;
}

bool WriteLine(int master, const SecretBytes &line)
{
    return ::write(master, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}
