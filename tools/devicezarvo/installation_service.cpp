#include "installation_service.h"

#include "deadlines.h"
#include "diagnostics.h"

#include <libimobiledevice/installation_proxy.h>

#include <utility>

using namespace Qt::StringLiterals;

InstallationService::InstallationService(PropertyClient client, Watch &watch)
    : m_client(std::move(client))
    , m_watch(&watch)
{
}

std::optional<InstallationService> InstallationService::start(PhoneSession &session, Failure *failure)
{
    PropertyClient client = session.startPropertyService(INSTPROXY_SERVICE_NAME, failure);
    if (!client)
        return std::nullopt;
    return InstallationService(std::move(client), session.watch());
}

bool InstallationService::send(const Plist &message, Failure *failure)
{
    m_watch->step(CurrentDeadlines().step);
    const int code = property_list_service_send_binary_plist(m_client.get(), message.get());
    Diagnose(u"send a command: %1"_s.arg(code));
    return code == PROPERTY_LIST_SERVICE_E_SUCCESS || Fail(failure, PropertyServiceFailure(code));
}

Plist InstallationService::receive(std::chrono::milliseconds limit, Failure *failure)
{
    const Deadlines &deadlines = CurrentDeadlines();
    const auto pause = static_cast<unsigned int>(deadlines.pause.count());
    const auto end = Watch::Clock::now() + limit;
    // The watch ends the program on the spot; silence is noticed here first, so that an upload is taken back.
    m_watch->step(limit + deadlines.pause + deadlines.step);
    for (;;) {
        if (const auto reason = m_watch->stopReason()) {
            Fail(failure, FailureOf(*reason));
            return {};
        }
        plist_t raw = nullptr;
        const int code = property_list_service_receive_plist_with_timeout(m_client.get(), &raw, pause);
        Plist message(raw);
        if (code == PROPERTY_LIST_SERVICE_E_RECEIVE_TIMEOUT && Watch::Clock::now() < end)
            continue;
        if (code == PROPERTY_LIST_SERVICE_E_SUCCESS && message)
            return message;
        Diagnose(u"receive a message: %1"_s.arg(code));
        Fail(failure, code == PROPERTY_LIST_SERVICE_E_SUCCESS ? FailureOf(Fault::BadReply)
                                                              : PropertyServiceFailure(code));
        return {};
    }
}
