// Takes clients, and lets go of them.
#pragma once

#include <QString>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <thread>

class Bus;
class Channel;

/// Serves each client on a thread of its own. Used on one thread.
class Server
{
public:
    explicit Server(Bus &bus)
        : m_bus(bus)
    {
    }
    /// Ends all connections and waits for their threads.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    /// Makes the socket, in the place of one that nobody listens on any more; false, with errno, when it
    /// cannot.
    bool listen(const QString &path);
    /// Takes clients until `onSignal`, called for every byte that comes through the descriptor `signals`,
    /// says false.
    void run(int signals, const std::function<bool(char)> &onSignal);

private:
    struct Client
    {
        std::shared_ptr<Channel> channel;
        std::atomic<bool> done = false;
        std::thread thread;
    };

    void accept();
    void reap();

    Bus &m_bus;
    QString m_path;
    int m_socket = -1;
    std::list<Client> m_clients;
};
