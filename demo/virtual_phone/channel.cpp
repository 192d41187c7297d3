#include "channel.h"

#include "damage.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace {

constexpr qsizetype kSwallowBlock = 65536;
constexpr Framing kTlsRecord{.header = 5, .lengthAt = 3, .lengthBytes = 2, .bigEndian = true, .typeAt = 0};

int asInt(qsizetype size)
{
    return static_cast<int>(std::min<qsizetype>(size, std::numeric_limits<int>::max()));
}

} // namespace

/// What OpenSSL reads from and writes to: the channel, so that records can be damaged on their way.
struct ChannelBio
{
    static int write(BIO *bio, const char *from, int size)
    {
        auto *channel = static_cast<Channel *>(BIO_get_data(bio));
        return channel->sendRecords(from, size) ? size : -1;
    }

    static int read(BIO *bio, char *to, int size)
    {
        return static_cast<int>(static_cast<Channel *>(BIO_get_data(bio))->receive(to, size));
    }

    static long control(BIO *, int command, long, void *) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

    static BIO *make(Channel *channel)
    {
        static BIO_METHOD *const method = [] {
            BIO_METHOD *made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "channel");
            BIO_meth_set_write(made, write);
            BIO_meth_set_read(made, read);
            BIO_meth_set_ctrl(made, control);
            return made;
        }();
        BIO *bio = BIO_new(method);
        BIO_set_data(bio, channel);
        BIO_set_init(bio, 1);
        return bio;
    }
};

Channel::Channel(int descriptor)
    : m_descriptor(descriptor)
{
}

Channel::~Channel()
{
    m_session.reset();
    ::close(m_descriptor);
}

qsizetype Channel::receive(char *to, qsizetype size)
{
    ssize_t got = 0;
    do {
        got = ::recv(m_descriptor, to, static_cast<size_t>(size), 0);
    } while (got < 0 && errno == EINTR);
    return std::max<ssize_t>(got, 0);
}

bool Channel::send(const char *from, qsizetype size)
{
    while (size > 0) {
        const ssize_t sent = ::send(m_descriptor, from, static_cast<size_t>(size), 0);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        from += sent;
        size -= sent;
    }
    return true;
}

bool Channel::sendRecords(const char *from, qsizetype size)
{
    auto blow = m_damager ? m_damager->next(Layer::Tls) : std::nullopt;
    if (!blow)
        return send(from, size);
    QByteArray records(from, size);
    const bool goesOn = blow->strike(records, kTlsRecord);
    const bool sent = send(records.constData(), records.size());
    if (goesOn || !sent)
        return sent;
    if (blow->hold()) {
        QByteArray forgotten(kSwallowBlock, Qt::Uninitialized);
        while (receive(forgotten.data(), forgotten.size()) > 0) {
        }
    }
    interrupt();
    return false;
}

qsizetype Channel::readSome(char *to, qsizetype size)
{
    if (!m_session)
        return receive(to, size);
    return std::max(::SSL_read(m_session.get(), to, asInt(size)), 0);
}

bool Channel::read(char *to, qsizetype size)
{
    while (size > 0) {
        const qsizetype got = readSome(to, size);
        if (got <= 0)
            return false;
        to += got;
        size -= got;
    }
    return true;
}

std::optional<QByteArray> Channel::read(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    if (!read(bytes.data(), size))
        return std::nullopt;
    return bytes;
}

bool Channel::awaitReadable(std::chrono::milliseconds limit)
{
    if (m_session && SSL_has_pending(m_session.get()))
        return true;
    pollfd wait{m_descriptor, POLLIN, 0};
    return ::poll(&wait, 1, static_cast<int>(limit.count())) != 0;
}

bool Channel::write(const QByteArray &bytes)
{
    if (!m_session)
        return send(bytes.constData(), bytes.size());
    return bytes.isEmpty() ||
           ::SSL_write(m_session.get(), bytes.constData(), asInt(bytes.size())) == bytes.size();
}

void Channel::swallow()
{
    QByteArray forgotten(kSwallowBlock, Qt::Uninitialized);
    while (readSome(forgotten.data(), forgotten.size()) > 0) {
    }
}

void Channel::interrupt()
{
    ::shutdown(m_descriptor, SHUT_RDWR);
}

bool Channel::encrypt(SSL_CTX *context, bool readAhead)
{
    Session session(SSL_new(context), SSL_free);
    if (!session)
        return false;
    BIO *bio = ChannelBio::make(this);
    SSL_set_bio(session.get(), bio, bio);
    SSL_set_read_ahead(session.get(), readAhead ? 1 : 0);
    ERR_clear_error();
    if (SSL_accept(session.get()) != 1)
        return false;
    m_session = std::move(session);
    return true;
}

void Channel::decrypt()
{
    if (!m_session)
        return;
    SSL_shutdown(m_session.get());
    m_session.reset();
}

void Channel::setDamager(std::shared_ptr<Damager> damager)
{
    m_damager = std::move(damager);
}
