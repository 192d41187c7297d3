#include "bus.h"

#include <algorithm>
#include <iterator>
#include <utility>

Bus::Bus(QString state)
    : m_state(std::move(state))
    , m_host(HostIdentity::make())
{
}

void Bus::apply(const Config &config)
{
    const std::scoped_lock lock(m_mutex);
    m_mute = config.mute;
    for (auto phone = m_attached.begin(); phone != m_attached.end();) {
        const auto next = std::next(phone);
        const bool stays =
            std::any_of(config.phones.begin(), config.phones.end(),
                        [&](const PhoneConfig &wanted) { return wanted.udid == phone->second->udid(); });
        if (!stays)
            detach(phone);
        phone = next;
    }
    for (const PhoneConfig &wanted : config.phones)
        attach(wanted);
}

void Bus::attach(const PhoneConfig &config)
{
    std::shared_ptr<Phone> &phone = m_known[config.udid];
    if (!phone)
        phone = std::make_shared<Phone>(config, m_state + u'/' + config.udid, m_host);
    else if (phone->config()->source != config.source)
        phone->configure(config);
    const bool present = std::any_of(m_attached.begin(), m_attached.end(),
                                     [&](const auto &attached) { return attached.second == phone; });
    if (present)
        return;
    m_attached[++m_lastId] = phone;
    tell({m_lastId, phone}, true);
}

void Bus::detach(std::map<int, std::shared_ptr<Phone>>::iterator phone)
{
    const Attached gone{phone->first, phone->second};
    m_attached.erase(phone);
    gone.phone->dropConnections();
    tell(gone, false);
}

void Bus::tell(const Attached &phone, bool came)
{
    std::erase_if(m_listeners, [&](const Listener &listener) { return !listener(phone, came); });
}

bool Bus::mute() const
{
    const std::scoped_lock lock(m_mutex);
    return m_mute;
}

std::vector<Bus::Attached> Bus::attached() const
{
    const std::scoped_lock lock(m_mutex);
    std::vector<Attached> all;
    for (const auto &[id, phone] : m_attached)
        all.push_back({id, phone});
    return all;
}

std::shared_ptr<Phone> Bus::phone(int id) const
{
    const std::scoped_lock lock(m_mutex);
    const auto found = m_attached.find(id);
    return found == m_attached.end() ? nullptr : found->second;
}

std::shared_ptr<Phone> Bus::phone(const QString &udid) const
{
    const std::scoped_lock lock(m_mutex);
    const auto found = m_known.find(udid);
    return found == m_known.end() ? nullptr : found->second;
}

void Bus::unplug(const std::shared_ptr<Phone> &phone)
{
    const std::scoped_lock lock(m_mutex);
    const auto found = std::find_if(m_attached.begin(), m_attached.end(),
                                    [&](const auto &attached) { return attached.second == phone; });
    if (found != m_attached.end())
        detach(found);
}

void Bus::listen(Listener listener)
{
    const std::scoped_lock lock(m_mutex);
    for (const auto &[id, phone] : m_attached) {
        if (!listener({id, phone}, true))
            return;
    }
    m_listeners.push_back(std::move(listener));
}

std::optional<QByteArray> Bus::pairRecord(const QString &udid) const
{
    const auto owner = phone(udid);
    if (!owner)
        return std::nullopt;
    const auto config = owner->config();
    if (config->faults.untrusted || config->faults.refused)
        return std::nullopt;
    const std::scoped_lock lock(m_mutex);
    const auto saved = m_records.find(udid);
    if (saved != m_records.end())
        return saved->second.isEmpty() ? std::nullopt : std::optional(saved->second);
    return config->paired ? std::optional(encodePlist(owner->firstPairRecord())) : std::nullopt;
}

void Bus::savePairRecord(const QString &udid, const QByteArray &record)
{
    const std::scoped_lock lock(m_mutex);
    m_records[udid] = record;
}

void Bus::deletePairRecord(const QString &udid)
{
    savePairRecord(udid, {});
}
