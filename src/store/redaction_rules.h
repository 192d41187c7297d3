// The fragments that have to go from a text before it is shown: one function for each kind.
#pragma once

#include <QStringView>

#include <optional>

// Each rule is a regular expression in ICU's syntax and meaning, and each function finds what the expression
// finds. No regular expression engine runs: what the tool prints can be shaped by others, ICU's backtracking
// takes hours for a megabyte of address characters, and when its stack overflows it hands the text back as it
// was. These functions visit a unit of the text a bounded number of times, allocate nothing and cannot fail;
// a test holds them against the engine itself.
//
// Each gives the first match that begins at `from` or later. What stands before `from` is looked at only to
// tell whether a word begins there. Any thread.
namespace Redaction {

/// Half open, in UTF-16 units of the text; never empty.
struct Match
{
    qsizetype start;
    qsizetype end;
};

using Found = std::optional<Match>;

/// A terminal control sequence (colours, cursor): `\x1b\[[0-?]*[ -/]*[@-~]`
Found findControlSequence(QStringView text, qsizetype from);

/// A header with secrets, up to the end of its line:
/// `(?im)\b(?:authorization|cookie|set-cookie)\s*[:=]\s*[^\r\n]+`
Found findHeader(QStringView text, qsizetype from);

/// A web or install address: `(?i)\b(?:https?|itms-services)://[^\s<>"']+`
Found findAddress(QStringView text, qsizetype from);

/// A bearer token: `(?i)\bBearer\s+[^\s,;]+`
Found findBearer(QStringView text, qsizetype from);

/// An account name in the shape of an e-mail address: `(?i)[A-Z0-9._%+-]+@[A-Z0-9.-]+\.[A-Z]{2,}`
Found findAccount(QStringView text, qsizetype from);

/// A key that names a secret, together with its value:
/// `(?i)["']?(?:password|passwd|pwd|token|passwordToken|access_token|refresh_token|session|cookie|`
/// `set-cookie|authorization|dsid|otp|verificationCode|x-apple-[a-z0-9-]+)["']?\s*[:=]\s*`
/// `(?:"[^"]*"|'[^']*'|[^\s,;]+)`
Found findSecret(QStringView text, qsizetype from);

/// A home folder, up to the user's name: `/(?:Users|home)/[^/\s]+`
Found findHomeFolder(QStringView text, qsizetype from);

/// A run of the characters of encoded data, too long for a word: `[A-Za-z0-9_+/=.-]{48,}`
Found findData(QStringView text, qsizetype from);

} // namespace Redaction
