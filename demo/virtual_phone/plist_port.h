// Messages that are property lists, as lockdown and most services exchange them.
#pragma once

#include "damage.h"
#include "plist_codec.h"

#include <memory>

class Channel;

/// Reads and writes such messages on a channel. One thread.
class PlistPort
{
public:
    /// Messages are sent in `format`; `damager` (may be null) strikes those of `layer`.
    PlistPort(Channel &channel, PlistFormat format, Layer layer, std::shared_ptr<Damager> damager);

    /// Waits for the next message; nothing when the client is gone or says what cannot be understood.
    std::optional<QVariantMap> receive();
    /// False when the connection is to end.
    bool send(const QVariantMap &message);

private:
    Channel &m_channel;
    PlistFormat m_format;
    Layer m_layer;
    std::shared_ptr<Damager> m_damager;
};

/// Sends a message that was framed, damaged when it is its turn. False when the connection is to end.
bool sendFrame(Channel &channel, QByteArray frame, const Framing &framing, std::optional<Blow> &blow);
