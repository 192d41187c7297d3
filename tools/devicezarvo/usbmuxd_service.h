// The system's service that reaches phones through the cable.
#pragma once

#include "fault.h"

#include <QStringList>

#include <optional>

/// What is wrong with the service's socket; nothing when it can be connected to, or when the service is told
/// to be elsewhere than on a socket of this system. Any thread.
std::optional<Fault> ServiceFault();

/// The identifiers of the connected phones, each once. None, and no failure, when the service is not there
/// and no phone is plugged in: it runs only while one is. Blocks; any thread.
std::optional<QStringList> ConnectedPhones(Failure *failure = nullptr);
