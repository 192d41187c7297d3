// The phones that are plugged in, and what the computer remembers of them.
#pragma once

#include "phone.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

/// Any thread.
class Bus
{
public:
    struct Attached
    {
        int id;
        std::shared_ptr<Phone> phone;
    };
    /// Told of a phone that came (true) or went. Called under the bus' lock: it may not call back. False: it
    /// has gone and need not be told again.
    using Listener = std::function<bool(const Attached &, bool)>;

    /// Phones keep what they keep in folders of `state`, named by their identifiers.
    explicit Bus(QString state);

    /// Plugs in what is new, pulls what is missing, changes what has changed.
    void apply(const Config &config);
    bool mute() const;
    std::vector<Attached> attached() const;
    std::shared_ptr<Phone> phone(int id) const; ///< null when it is gone
    std::shared_ptr<Phone> phone(const QString &udid) const;
    /// Pulls the phone and all its connections until apply() plugs it in again.
    void unplug(const std::shared_ptr<Phone> &phone);
    /// Tells the listener of all phones, and of all that come and go.
    void listen(Listener listener);

    const QString &systemBuid() const { return m_host.systemBuid; }
    /// The computer's half of the pairing; nothing when it has none.
    std::optional<QByteArray> pairRecord(const QString &udid) const;
    void savePairRecord(const QString &udid, const QByteArray &record);
    void deletePairRecord(const QString &udid);

private:
    void attach(const PhoneConfig &config);
    void detach(std::map<int, std::shared_ptr<Phone>>::iterator phone);
    void tell(const Attached &phone, bool came);

    const QString m_state;
    const HostIdentity m_host;
    mutable std::mutex m_mutex; // for all below
    bool m_mute = false;
    int m_lastId = 0;
    std::map<int, std::shared_ptr<Phone>> m_attached;
    std::map<QString, std::shared_ptr<Phone>> m_known; ///< pulled ones included
    std::map<QString, QByteArray> m_records;           ///< an empty one was deleted
    std::vector<Listener> m_listeners;
};
