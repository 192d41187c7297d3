// What may be shown of the store tool's output.
#pragma once

#include "core/tool_runner.h"
#include "store/known_secrets.h"

#include <QJsonObject>
#include <QString>

#include <optional>

/// Collects what a tool's JSON objects report of a failure: their errors, else the messages of what went
/// wrong. Joined as they come: a list of millions of short texts would be many times their size.
class ReportedErrors
{
public:
    void take(const QJsonObject &object);
    /// None when there was no object, empty when none reported a failure. Not redacted.
    std::optional<QString> text() const;

private:
    QString m_errors;
    QString m_messages;
    bool m_hasObjects = false;
    bool m_hasErrors = false;
    bool m_hasMessages = false;
};

/// One line, at most 1400 UTF-16 units, that tells why a run of the store tool failed, without accounts,
/// secrets, addresses and home folders, and without those in `known`; may be empty. Prefers the tool's own
/// error messages; a tool that spoke JSON without reporting an error gives the empty text, whatever else it
/// printed. Any thread.
QString ZarvoSafeStoreDiagnostic(const ToolResult &result, const KnownSecrets &known = {});

/// The same for a run whose JSON has been read: `reported` is what its ReportedErrors said.
QString SafeDiagnostic(const ToolResult &result, const std::optional<QString> &reported,
                       const KnownSecrets &known);

/// The redaction alone: `text` with every secret-looking fragment, and every secret in `known`, replaced by a
/// Russian placeholder in square brackets and without terminal control sequences; lines stay lines. All is
/// hidden that would be without `known`. Any UTF-16 is taken, unpaired
/// surrogates too. Time is linear in the length of the text whatever it holds, memory is a few times its
/// size, and there is no way to fail: no text comes back with a rule left out. Any thread.
QString RedactSecrets(const QString &text, const KnownSecrets &known = {});
