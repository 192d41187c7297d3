// Damage to what the phone says, reproducible by a number.
#pragma once

#include <QByteArray>
#include <QVariant>

#include <atomic>
#include <optional>
#include <random>

/// Where a message is damaged; Service stands for all three services.
enum class Layer { Mux, Lockdown, Tls, Service, Afc, InstallationProxy, Diagnostics };

enum class DamageKind {
    Flip,   ///< some bits are turned
    Cut,    ///< the message ends early, and with it the connection
    Type,   ///< a value of the message, or the message itself, is of another type
    Length, ///< the message claims a wrong, mostly huge, length
};

struct DamageConfig
{
    Layer layer = Layer::Mux;
    quint64 seed = 0;
    DamageKind kind = DamageKind::Flip;
    int every = 3;     ///< one message in so many is damaged, which ones the seed says
    bool hold = false; ///< a connection whose messages can no longer be told apart stays open, silent
};

/// How the messages of a layer begin.
struct Framing
{
    qsizetype header = 0; ///< bytes
    qsizetype lengthAt = 0;
    int lengthBytes = 4;
    bool bigEndian = false;
    qsizetype typeAt = -1; ///< of a byte that tells the type of the message; -1: the type is in the body
};

/// The damage to one message.
class Blow
{
public:
    Blow(const DamageConfig &config, quint64 number);

    /// Gives one value of a message, chosen by the seed, another type; does nothing for the other kinds.
    void retype(QVariant &message);
    /// Damages the bytes that are about to be sent. False when the receiver cannot find the next message any
    /// more: nothing may follow.
    bool strike(QByteArray &frame, const Framing &framing);
    bool hold() const { return m_config.hold; }

private:
    quint64 below(quint64 bound);
    bool flip(QByteArray &frame, const Framing &framing);
    void lengthen(QByteArray &frame, const Framing &framing);

    DamageConfig m_config;
    std::mt19937_64 m_random;
};

/// Decides which messages of a phone are damaged. Any thread.
class Damager
{
public:
    explicit Damager(const DamageConfig &config)
        : m_config(config)
    {
    }

    /// To be asked once a message of `layer`.
    std::optional<Blow> next(Layer layer);

private:
    DamageConfig m_config;
    std::atomic<quint64> m_count = 0;
};
