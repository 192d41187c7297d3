// How texts that come from outside are shown.
#pragma once

#include <QString>

/// `text` in one line: each run of line breaks and other control characters has become a blank. Any thread.
QString OneLine(const QString &text);

/// An explanation as it is shown: its paragraphs in one line each, at most two of them (what to do, and why),
/// and cut with "…" when nobody would read it to its end. Any thread.
QString ShownExplanation(const QString &text);
