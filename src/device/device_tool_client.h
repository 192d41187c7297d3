// Judging what `devicezarvo` answered. Plain functions, any thread.
#pragma once

#include "core/error.h"
#include "core/tool_runner.h"
#include "device/device_records.h"

#include <optional>

/// The answer of a run: the last JSON object of its standard output; none when there is no object.
std::optional<DeviceReply> LastDeviceReply(const ToolResult &result);

/// The answer of an ordinary request. Fails when the exit status is not 0, when there is no answer, or when
/// the answer has an `error` key, with that text or, lacking one, with the advice to unlock the phone.
std::optional<DeviceReply> JudgeDeviceRun(const ToolResult &result, Error *error = nullptr);

/// The phones that a poll found: none whenever the run failed in any way (`result` absent: it did not end).
/// Says in `error` why there is no answer, unless the run has said so itself by being absent.
QList<PhoneEntry> DiscoveredPhones(const std::optional<ToolResult> &result, Error *error = nullptr);
