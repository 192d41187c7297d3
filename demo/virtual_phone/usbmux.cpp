#include "usbmux.h"

#include "bus.h"
#include "channel.h"
#include "plist_port.h"
#include "services.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <atomic>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 kMuxHeader = 16;
constexpr quint32 kMaxMessage = 4 << 20;
constexpr quint32 kPlistVersion = 1;
constexpr quint32 kPlistMessage = 8;
constexpr Framing kFraming{.header = kMuxHeader, .lengthAt = 0, .lengthBytes = 4, .bigEndian = false};

constexpr int kProductId = 0x12A8;
constexpr int kSpeed = 480'000'000; // bits in a second

/// What the service answers with.
enum Result : int { Ok = 0, BadCommand = 1, BadDevice = 2, ConnectionRefused = 3 };

std::shared_ptr<Damager> muxDamager(const std::shared_ptr<Phone> &phone)
{
    const auto damage = phone ? phone->config()->faults.damage : std::nullopt;
    return damage && damage->layer == Layer::Mux ? phone->damager() : nullptr;
}

/// What damages words that are about no phone in particular: each client meets another phone's damage.
std::shared_ptr<Damager> commonDamager(const Bus &bus)
{
    static std::atomic<size_t> clients = 0;
    std::vector<std::shared_ptr<Damager>> all;
    for (const auto &[id, phone] : bus.attached()) {
        if (const auto damager = muxDamager(phone))
            all.push_back(damager);
    }
    return all.empty() ? nullptr : all[clients++ % all.size()];
}

class MuxClient
{
public:
    MuxClient(Bus &bus, std::shared_ptr<Channel> channel)
        : m_bus(bus)
        , m_channel(std::move(channel))
        , m_damager(commonDamager(bus))
    {
    }

    void run();

private:
    std::optional<QVariantMap> receive();
    bool handle(const QVariantMap &request);
    bool send(const QVariantMap &message);
    bool result(Result number);
    bool listDevices();
    bool listen();
    bool pairRecord(const QString &type, const QVariantMap &request);
    bool connect(const QVariantMap &request);

    Bus &m_bus;
    const std::shared_ptr<Channel> m_channel;
    std::shared_ptr<Damager> m_damager;
    quint32 m_tag = 0; ///< of the request that is being answered
};

bool sendMessage(Channel &channel, quint32 tag, const QVariantMap &message,
                 const std::shared_ptr<Damager> &damager)
{
    auto blow = damager ? damager->next(Layer::Mux) : std::nullopt;
    QVariant value = message;
    if (blow)
        blow->retype(value);
    const QByteArray body = encodePlist(value);
    QByteArray frame(kMuxHeader, Qt::Uninitialized);
    const std::array<quint32, 4> header{kMuxHeader + static_cast<quint32>(body.size()), kPlistVersion,
                                        kPlistMessage, tag};
    qToLittleEndian<quint32>(header.data(), header.size(), frame.data());
    return sendFrame(channel, frame + body, kFraming, blow);
}

QVariantMap attachedMessage(const Bus::Attached &attached)
{
    const auto config = attached.phone->config();
    QString serial = config->udid;
    // Newer phones have a dash in their identifiers, but not on the cable.
    QVariantMap properties{{u"ConnectionType"_s, config->connection},
                           {u"DeviceID"_s, attached.id},
                           {u"SerialNumber"_s, serial.remove(u'-')}};
    if (config->connection == "USB"_L1) {
        properties.insert(u"ConnectionSpeed"_s, kSpeed);
        properties.insert(u"LocationID"_s, attached.id << 16);
        properties.insert(u"ProductID"_s, kProductId);
    } else {
        properties.insert(u"EscapedFullServiceName"_s, config->udid + u"._apple-mobdev2._tcp.local."_s);
        // An address of IPv4, in the documentation's range, as a sockaddr that begins with its length.
        properties.insert(u"NetworkAddress"_s,
                          QByteArray("\x10\x02\x00\x00\xC0\x00\x02\x01", 8).leftJustified(16, '\0'));
        properties.insert(u"InterfaceIndex"_s, 1);
    }
    return {{u"MessageType"_s, u"Attached"_s}, {u"DeviceID"_s, attached.id}, {u"Properties"_s, properties}};
}

void MuxClient::run()
{
    if (m_bus.mute()) {
        m_channel->swallow();
        return;
    }
    while (const auto request = receive()) {
        if (!handle(*request))
            return;
    }
}

std::optional<QVariantMap> MuxClient::receive()
{
    const auto header = m_channel->read(kMuxHeader);
    if (!header)
        return std::nullopt;
    std::array<quint32, 4> fields{};
    qFromLittleEndian<quint32>(header->constData(), fields.size(), fields.data());
    if (fields[0] < kMuxHeader || fields[0] > kMaxMessage)
        return std::nullopt;
    m_tag = fields[3];
    const auto body = m_channel->read(fields[0] - kMuxHeader);
    if (!body)
        return std::nullopt;
    // Clients older than property lists are told that they are not understood.
    if (fields[1] != kPlistVersion || fields[2] != kPlistMessage)
        return QVariantMap();
    return decodePlist(*body);
}

bool MuxClient::handle(const QVariantMap &request)
{
    const QString type = request.value(u"MessageType"_s).toString();
    if (type == "ListDevices"_L1)
        return listDevices();
    if (type == "Listen"_L1)
        return listen();
    if (type == "ReadBUID"_L1)
        return send({{u"BUID"_s, m_bus.systemBuid()}});
    if (type.endsWith("PairRecord"_L1))
        return pairRecord(type, request);
    if (type == "Connect"_L1)
        return connect(request);
    return result(BadCommand);
}

bool MuxClient::send(const QVariantMap &message)
{
    return sendMessage(*m_channel, m_tag, message, m_damager);
}

bool MuxClient::result(Result number)
{
    return send({{u"MessageType"_s, u"Result"_s}, {u"Number"_s, static_cast<int>(number)}});
}

bool MuxClient::listDevices()
{
    QVariantList list;
    for (const Bus::Attached &attached : m_bus.attached())
        list.append(attachedMessage(attached));
    return send({{u"DeviceList"_s, list}});
}

bool MuxClient::listen()
{
    if (!result(Ok))
        return false;
    m_bus.listen([weak = std::weak_ptr(m_channel)](const Bus::Attached &attached, bool came) {
        const auto channel = weak.lock();
        const QVariantMap gone{{u"MessageType"_s, u"Detached"_s}, {u"DeviceID"_s, attached.id}};
        return channel && sendMessage(*channel, 0, came ? attachedMessage(attached) : gone, nullptr);
    });
    // Such a client only listens; what it might say is of no interest, that it goes is.
    m_channel->swallow();
    return false;
}

bool MuxClient::pairRecord(const QString &type, const QVariantMap &request)
{
    const QString udid = request.value(u"PairRecordID"_s).toString();
    m_damager = muxDamager(m_bus.phone(udid));
    if (type == "SavePairRecord"_L1) {
        m_bus.savePairRecord(udid, request.value(u"PairRecordData"_s).toByteArray());
        return result(Ok);
    }
    if (type == "DeletePairRecord"_L1) {
        m_bus.deletePairRecord(udid);
        return result(Ok);
    }
    const auto record = m_bus.pairRecord(udid);
    return record ? send({{u"PairRecordData"_s, *record}}) : result(BadDevice);
}

bool MuxClient::connect(const QVariantMap &request)
{
    const auto phone = m_bus.phone(request.value(u"DeviceID"_s).toInt());
    m_damager = muxDamager(phone);
    if (!phone)
        return result(BadDevice);
    const Connection connection{m_bus, phone, m_channel, phone->config(), phone->damager()};
    if (connection.mute("usbmuxd")) {
        m_channel->swallow();
        return false;
    }
    // In the byte order of the network, on a cable that else is little-endian.
    const auto port = qbswap(static_cast<quint16>(request.value(u"PortNumber"_s).toUInt()));
    const auto ticket = takePort(connection, port);
    if (!ticket)
        return result(ConnectionRefused);
    if (!result(Ok))
        return false;
    phone->addConnection(m_channel);
    m_channel->setDamager(connection.damager);
    serve(connection, *ticket);
    return false;
}

} // namespace

void serveClient(Bus &bus, const std::shared_ptr<Channel> &channel)
{
    MuxClient(bus, channel).run();
}
