// Asking `devicezarvo`, and judging what it answered. Any thread.
#pragma once

#include "core/error.h"
#include "core/job.h"
#include "core/tool_runner.h"
#include "device/device_records.h"

#include <optional>

/// The answer of a run: the last JSON object of its standard output; none when there is no object.
std::optional<DeviceReply> LastDeviceReply(const ToolResult &result);

/// The answer of an ordinary request. Fails when the exit status is not 0, when there is no answer, or when
/// the answer has an `error` key, with that text or, lacking one, with the advice to unlock the phone.
std::optional<DeviceReply> JudgeDeviceRun(const ToolResult &result, Error *error = nullptr);

/// Makes an ordinary request and returns its answer. Fails when the tool could not run to its end, and as
/// JudgeDeviceRun does. Blocks.
std::optional<DeviceReply> device(Job &job, const QStringList &arguments, Error *error = nullptr);
