// From a failed run of the store tool to one message for the user.
#pragma once

#include "core/tool_runner.h"
#include "store/known_secrets.h"

#include <QString>

/// What the user can do, an empty line, the tool's exit code and its redacted reason, in which nothing of
/// `known` is left. The advice is chosen by the redacted reason too, so that nothing of the tool's raw output
/// gets further. Never empty. Any thread.
QString ZarvoStoreFailure(const ToolResult &result, const KnownSecrets &known = {});

/// The same message from the exit `code` and a redacted `diagnostic`, as an error with its kind and, where
/// the tool is at fault, what to do about that. Any thread.
Error StoreRunError(int code, const QString &diagnostic);

/// What to do about a tool that does not know what it was told to do, by what it has `said`: it is too old,
/// or another program. Empty when it said anything else.
QString ForeignToolAdvice(const QString &said);

/// What to do about a tool that did not answer in time, should it never do. Any thread.
QString MuteToolAdvice();
