// Characters and words as ICU's regular expressions see them, for scanning a text by hand. Positions and
// lengths are UTF-16 units. Plain functions, any thread; none fails.
#pragma once

#include <QLatin1StringView>
#include <QStringView>

#include <array>

namespace Scan {

constexpr char16_t longS = u'\u017f';      // folds to s
constexpr char16_t kelvinSign = u'\u212a'; // folds to k

constexpr bool isBetween(char16_t c, char16_t first, char16_t last)
{
    return c >= first && c <= last;
}

/// `[A-Z]` without regard to case, which takes in the two characters beyond ASCII that fold to one of its
/// letters.
constexpr bool isLetter(char16_t c)
{
    return isBetween(c, u'a', u'z') || isBetween(c, u'A', u'Z') || c == longS || c == kelvinSign;
}

constexpr bool isDigit(char16_t c)
{
    return isBetween(c, u'0', u'9');
}

constexpr bool isQuote(char16_t c)
{
    return c == u'"' || c == u'\'';
}

constexpr bool isLineEnd(char16_t c)
{
    return c == u'\r' || c == u'\n';
}

/// Whether a character is one of White_Space (`\s`) beyond ASCII.
bool isWideBlank(char16_t c);

/// `\s`. All of White_Space lies in the basic plane, so a unit is enough to tell.
inline bool isBlank(char16_t c)
{
    return c < 0x80 ? c == u' ' || isBetween(c, u'\t', u'\r') : isWideBlank(c);
}

/// The end of the characters from `start` on that `belongs` accepts.
template <typename Predicate>
qsizetype endOfRun(QStringView text, qsizetype start, Predicate belongs)
{
    while (start < text.size() && belongs(text[start].unicode()))
        ++start;
    return start;
}

/// The start of the characters before `end` that `belongs` accepts, not left of `from`.
template <typename Predicate>
qsizetype startOfRun(QStringView text, qsizetype from, qsizetype end, Predicate belongs)
{
    while (end > from && belongs(text[end - 1].unicode()))
        --end;
    return end;
}

/// `\b` before a letter at `position`: whether no word ends there. Combining and format characters are looked
/// through, so the time is that of the run of them before `position`.
bool isBoundaryBefore(QStringView text, qsizetype position);

/// The start of `word` (ASCII, lower case) where the text, in any case, has it ending at `end`; -1 when it
/// does not, or when the word would begin left of `from`. Case is folded in full: "ß" is "ss".
qsizetype startOfWord(QStringView text, qsizetype from, qsizetype end, QLatin1StringView word);

/// The letter (ASCII, lower case) in which the folding of `c` ends; 0 when it folds to no ASCII.
char lastFoldedLetter(char16_t c);

/// The leftmost start of any of `words` that ends at `end` and for which `accepts(start)`; -1 when there is
/// none.
template <std::size_t Count, typename Predicate>
qsizetype startOfAnyWord(QStringView text, qsizetype from, qsizetype end,
                         const std::array<QLatin1StringView, Count> &words, Predicate accepts)
{
    if (end == from)
        return -1;
    // Most ends are told by one letter: a hostile text may hold a separator in every second place.
    const char last = lastFoldedLetter(text[end - 1].unicode());
    qsizetype leftmost = -1;
    for (const QLatin1StringView word : words) {
        if (word.back().toLatin1() != last)
            continue;
        const qsizetype start = startOfWord(text, from, end, word);
        if (start >= 0 && (leftmost < 0 || start < leftmost) && accepts(start))
            leftmost = start;
    }
    return leftmost;
}

} // namespace Scan
