// What may be shown of the store tool's output.
#pragma once

#include "core/tool_runner.h"
#include "store/known_secrets.h"

#include <QString>

/// One line, at most 1400 UTF-16 units, that tells why a run of the store tool failed, without accounts,
/// secrets, addresses and home folders, and without those in `known`; may be empty. Prefers the tool's own
/// error messages; a tool that spoke JSON without reporting an error gives the empty text, whatever else it
/// printed. Any thread.
QString ZarvoSafeStoreDiagnostic(const ToolResult &result, const KnownSecrets &known = {});

/// The redaction alone: `text` with every secret-looking fragment, and every secret in `known`, replaced by a
/// Russian placeholder in square brackets and without terminal control sequences; lines stay lines. All is
/// hidden that would be without `known`. Any UTF-16 is taken, unpaired
/// surrogates too. Time is linear in the length of the text whatever it holds, memory is a few times its
/// size, and there is no way to fail: no text comes back with a rule left out. Any thread.
QString RedactSecrets(const QString &text, const KnownSecrets &known = {});
