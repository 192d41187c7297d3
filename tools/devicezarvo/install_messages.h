// Understanding what the phone's installation service sends. Plain functions, any thread.
#pragma once

#include "fault.h"

#include <QString>

#include <plist/plist.h>

/// One message, as far as it matters.
struct InstallMessage
{
    enum class Kind {
        Other,    ///< says nothing that matters: some carry neither a status nor an error
        Working,  ///< goes on
        Complete, ///< the phone calls it done
        Refused,
    };

    Kind kind = Kind::Other;
    int percent = -1; ///< 0 to 100; -1: not given
    Failure refusal;  ///< for Refused
};

InstallMessage ReadInstallMessage(plist_t message);
