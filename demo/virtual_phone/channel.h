// The bytes between the phone and one client.
#pragma once

#include <QByteArray>

#include <openssl/ssl.h>

#include <chrono>
#include <memory>
#include <optional>

class Damager;

/// A connected socket, in the clear or under TLS. Blocking; one thread reads and writes, but for interrupt(),
/// which any may call, and but for a second thread that may write while nothing is encrypted. Closed when
/// destroyed.
class Channel
{
public:
    explicit Channel(int descriptor);
    ~Channel();
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    /// Waits for exactly `size` bytes; false when they cannot come any more.
    bool read(char *to, qsizetype size);
    std::optional<QByteArray> read(qsizetype size);
    /// Waits for something, at most `size` bytes; 0 when nothing can come any more.
    qsizetype readSome(char *to, qsizetype size);
    /// False when nothing to read came, and the end did not come either, within the time.
    bool awaitReadable(std::chrono::milliseconds limit);
    bool write(const QByteArray &bytes);
    /// Reads and forgets all until the end.
    void swallow();
    /// Ends the connection for both sides: every wait returns.
    void interrupt();

    /// Becomes the serving side of TLS; false when the client did not manage, or was turned down. `readAhead`
    /// saves system calls, but then decrypt() may not follow.
    bool encrypt(SSL_CTX *context, bool readAhead);
    void decrypt();
    /// Damages what is sent below TLS from now on.
    void setDamager(std::shared_ptr<Damager> damager);

private:
    using Session = std::unique_ptr<SSL, decltype(&SSL_free)>;

    friend struct ChannelBio;
    qsizetype receive(char *to, qsizetype size);
    bool send(const char *from, qsizetype size);
    bool sendRecords(const char *from, qsizetype size);

    int m_descriptor;
    Session m_session{nullptr, SSL_free};
    std::shared_ptr<Damager> m_damager;
};
