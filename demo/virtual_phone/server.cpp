#include "server.h"

#include "bus.h"
#include "channel.h"
#include "usbmux.h"

#include <QFile>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kWaitingClients = 64;

} // namespace

Server::~Server()
{
    for (Client &client : m_clients) {
        client.channel->interrupt();
        client.thread.join();
    }
    if (m_socket >= 0) {
        ::close(m_socket);
        QFile::remove(m_path);
    }
}

bool Server::listen(const QString &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    if (static_cast<size_t>(name.size()) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    const int probe = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool taken = ::connect(probe, generic, sizeof address) == 0;
    const bool stale = !taken && errno == ECONNREFUSED;
    ::close(probe);
    if (stale)
        ::unlink(name.constData());
    m_socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::fcntl(m_socket, F_SETFD, FD_CLOEXEC);
    if (::bind(m_socket, generic, sizeof address) == 0 && ::listen(m_socket, kWaitingClients) == 0) {
        m_path = path;
        return true;
    }
    const int reason = errno;
    ::close(m_socket);
    m_socket = -1;
    errno = reason;
    return false;
}

void Server::run(int signals, const std::function<bool(char)> &onSignal)
{
    while (true) {
        pollfd waits[] = {{signals, POLLIN, 0}, {m_socket, POLLIN, 0}};
        if (::poll(waits, std::size(waits), -1) < 0 && errno != EINTR)
            return;
        char signal = 0;
        if (waits[0].revents && ::read(signals, &signal, 1) == 1 && !onSignal(signal))
            return;
        if (waits[1].revents)
            accept();
        reap();
    }
}

void Server::accept()
{
    const int descriptor = ::accept(m_socket, nullptr, nullptr);
    if (descriptor < 0)
        return;
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    Client &client = m_clients.emplace_back();
    client.channel = std::make_shared<Channel>(descriptor);
    client.thread = std::thread([this, &client] {
        serveClient(m_bus, client.channel);
        client.channel->interrupt();
        client.done = true;
    });
}

void Server::reap()
{
    m_clients.remove_if([](Client &client) {
        if (client.done)
            client.thread.join();
        return client.done.load();
    });
}
