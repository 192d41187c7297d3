// How texts that come from outside are shown.
#pragma once

#include <QString>

/// `text` in one line: each run of line breaks and other control characters has become a blank, and what
/// would change the direction of the text around it is gone. Any thread.
QString OneLine(const QString &text);

/// What a phone, an app, an account or a file calls itself, as it is shown: in one line, and cut with "…"
/// where it is longer than any honest name. Any thread.
QString ShownName(const QString &name);

/// An explanation as it is shown: its paragraphs in one line each, at most two of them (what to do, and why),
/// and cut with "…" when nobody would read it to its end. Any thread.
QString ShownExplanation(const QString &text);
