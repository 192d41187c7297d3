#include "plist_port.h"

#include "channel.h"

#include <QtEndian>

#include <utility>

namespace {

constexpr quint32 kMaxPlist = 16 << 20;
constexpr Framing kPlistFraming{.header = 4, .lengthAt = 0, .lengthBytes = 4, .bigEndian = true};

} // namespace

PlistPort::PlistPort(Channel &channel, PlistFormat format, Layer layer, std::shared_ptr<Damager> damager)
    : m_channel(channel)
    , m_format(format)
    , m_layer(layer)
    , m_damager(std::move(damager))
{
}

std::optional<QVariantMap> PlistPort::receive()
{
    const auto header = m_channel.read(kPlistFraming.header);
    if (!header)
        return std::nullopt;
    const auto size = qFromBigEndian<quint32>(header->constData());
    if (size > kMaxPlist)
        return std::nullopt;
    const auto body = m_channel.read(size);
    return body ? decodePlist(*body) : std::nullopt;
}

bool PlistPort::send(const QVariantMap &message)
{
    auto blow = m_damager ? m_damager->next(m_layer) : std::nullopt;
    QVariant value = message;
    if (blow)
        blow->retype(value);
    const QByteArray body = encodePlist(value, m_format);
    QByteArray frame(kPlistFraming.header, Qt::Uninitialized);
    qToBigEndian(static_cast<quint32>(body.size()), frame.data());
    return sendFrame(m_channel, frame + body, kPlistFraming, blow);
}

bool sendFrame(Channel &channel, QByteArray frame, const Framing &framing, std::optional<Blow> &blow)
{
    const bool goesOn = !blow || blow->strike(frame, framing);
    if (!channel.write(frame))
        return false;
    if (!goesOn && blow->hold())
        channel.swallow();
    return goesOn;
}
