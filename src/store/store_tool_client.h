// Judging what `ipatool` printed. Plain functions, any thread.
#pragma once

#include "core/tool_runner.h"

#include <QString>

/// Both outputs of a run, one after the other: the tool writes its JSON lines to either.
QString CombinedOutput(const ToolResult &result);

/// True when the exit status is 0 and no JSON object of `output` tells of a failure: by an `error` key,
/// whatever its value, or by a `success` that is not true. One failing object outweighs all others and the
/// exit status.
bool StoreRunSucceeded(int code, const QString &output);
