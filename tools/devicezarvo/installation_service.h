// The phone's installation service, spoken to message by message: the library's own calls for it wait for
// ever when the connection breaks.
#pragma once

#include "phone_session.h"

#include <chrono>
#include <optional>

/// Everything blocks; one thread.
class InstallationService
{
public:
    static std::optional<InstallationService> start(PhoneSession &session, Failure *failure = nullptr);

    bool send(const Plist &message, Failure *failure = nullptr);

    /// The next message, whatever is in it. Null when the connection fails, the message is no property list,
    /// or the watch says to stop. Silence longer than `limit` ends the program.
    Plist receive(std::chrono::milliseconds limit, Failure *failure = nullptr);

private:
    InstallationService(PropertyClient client, Watch &watch);

    PropertyClient m_client;
    Watch *m_watch;
};
