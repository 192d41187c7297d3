// Texts cut at a bound.
#pragma once

#include <QString>

/// The first `units` UTF-16 units of `text`, less the half of a pair that the cut would leave. Any thread.
inline QString BoundedText(const QString &text, qsizetype units)
{
    if (text.size() <= units)
        return text;
    return text.left(text[units - 1].isHighSurrogate() ? units - 1 : units);
}
