#include "damage.h"

#include <QList>

#include <algorithm>

namespace {

constexpr quint64 kMaxFlips = 8;
constexpr quint64 kHugeLengths[] = {0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, 0x40000000, 0x7FFFFFFFFFFFFFFF, 0, 1};

bool strikes(Layer wanted, Layer layer)
{
    if (wanted == Layer::Service)
        return layer == Layer::Afc || layer == Layer::InstallationProxy || layer == Layer::Diagnostics;
    return wanted == layer;
}

/// All values in `value`, itself included.
void collect(QVariant &value, QList<QVariant *> &found)
{
    found.append(&value);
    if (value.typeId() == QMetaType::QVariantMap) {
        for (QVariant &item : *static_cast<QVariantMap *>(value.data()))
            collect(item, found);
    } else if (value.typeId() == QMetaType::QVariantList) {
        for (QVariant &item : *static_cast<QVariantList *>(value.data()))
            collect(item, found);
    }
}

} // namespace

Blow::Blow(const DamageConfig &config, quint64 number)
    : m_config(config)
{
    std::seed_seq seeds{config.seed, config.seed >> 32, number};
    m_random.seed(seeds);
}

quint64 Blow::below(quint64 bound)
{
    return m_random() % bound;
}

void Blow::retype(QVariant &message)
{
    if (m_config.kind != DamageKind::Type)
        return;
    QList<QVariant *> values;
    collect(message, values);
    QVariant &victim = *values[static_cast<qsizetype>(below(static_cast<quint64>(values.size())))];
    const QVariantList others{QStringLiteral("\u0416"), qint64{-1},     true,         1.5,
                              QByteArray("\0\xFF", 2),  QVariantList{}, QVariantMap{}};
    QVariant other = victim;
    while (other.typeId() == victim.typeId())
        other = others[static_cast<qsizetype>(below(static_cast<quint64>(others.size())))];
    victim = other;
}

bool Blow::flip(QByteArray &frame, const Framing &framing)
{
    bool apart = true;
    for (quint64 left = 1 + below(kMaxFlips); left > 0; --left) {
        const auto at = static_cast<qsizetype>(below(static_cast<quint64>(frame.size())));
        frame[at] = static_cast<char>(frame[at] ^ (1 << below(8)));
        apart = apart && at >= framing.header;
    }
    return apart;
}

void Blow::lengthen(QByteArray &frame, const Framing &framing)
{
    const quint64 length = kHugeLengths[below(std::size(kHugeLengths))];
    for (int i = 0; i < framing.lengthBytes && framing.lengthAt + i < frame.size(); ++i) {
        const int shift = 8 * (framing.bigEndian ? framing.lengthBytes - 1 - i : i);
        frame[framing.lengthAt + i] = static_cast<char>(length >> shift);
    }
}

bool Blow::strike(QByteArray &frame, const Framing &framing)
{
    if (frame.isEmpty())
        return true;
    switch (m_config.kind) {
    case DamageKind::Flip:
        return flip(frame, framing);
    case DamageKind::Cut:
        frame.truncate(static_cast<qsizetype>(below(static_cast<quint64>(frame.size()))));
        return false;
    case DamageKind::Length:
        lengthen(frame, framing);
        return false;
    case DamageKind::Type:
        if (framing.typeAt >= 0 && framing.typeAt < frame.size())
            frame[framing.typeAt] = static_cast<char>(frame[framing.typeAt] ^ (1 + below(0x3F)));
        return true;
    }
    return true;
}

std::optional<Blow> Damager::next(Layer layer)
{
    if (!strikes(m_config.layer, layer))
        return std::nullopt;
    const quint64 number = m_count++;
    std::seed_seq seeds{m_config.seed, m_config.seed >> 32, number, quint64{1}};
    std::mt19937_64 random(seeds);
    if (random() % static_cast<quint64>(std::max(m_config.every, 1)) != 0)
        return std::nullopt;
    return Blow(m_config, number);
}
