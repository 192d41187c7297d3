#include "store/text_scanning.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

using namespace Qt::StringLiterals;

namespace Scan {
namespace {

/// The ASCII text to which full case folding turns a character beyond ASCII; empty when it turns into
/// anything else. These are all there are, and will be: Unicode never changes the folding of an assigned
/// character.
constexpr QLatin1StringView asciiFolding(char16_t c)
{
    switch (c) {
    case longS:
        return "s"_L1;
    case kelvinSign:
        return "k"_L1;
    case u'\u00df': // ß
    case u'\u1e9e': // ẞ
        return "ss"_L1;
    case u'\ufb00': // ﬀ
        return "ff"_L1;
    case u'\ufb01': // ﬁ
        return "fi"_L1;
    case u'\ufb02': // ﬂ
        return "fl"_L1;
    case u'\ufb03': // ﬃ
        return "ffi"_L1;
    case u'\ufb04': // ﬄ
        return "ffl"_L1;
    case u'\ufb05': // ﬅ
    case u'\ufb06': // ﬆ
        return "st"_L1;
    default:
        return {};
    }
}

constexpr char lowerCase(char16_t ascii)
{
    return char(isBetween(ascii, u'A', u'Z') ? ascii - u'A' + u'a' : ascii);
}

} // namespace

bool isWideBlank(char16_t c)
{
    return u_isUWhiteSpace(c);
}

bool isBoundaryBefore(QStringView text, qsizetype position)
{
    constexpr uint32_t wordCategories = U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK;
    const char16_t *units = text.utf16();
    while (position > 0) {
        UChar32 c = 0;
        U16_PREV(units, 0, position, c);
        if (u_charType(c) == U_FORMAT_CHAR || u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND))
            continue;
        return !u_isUAlphabetic(c) && (U_GET_GC_MASK(c) & wordCategories) == 0;
    }
    return true;
}

qsizetype startOfWord(QStringView text, qsizetype from, qsizetype end, QLatin1StringView word)
{
    while (!word.isEmpty()) {
        if (end == from)
            return -1;
        const char16_t c = text[--end].unicode();
        if (c < 0x80) {
            if (word.back().toLatin1() != lowerCase(c))
                return -1;
            word.chop(1);
        } else {
            const QLatin1StringView folded = asciiFolding(c);
            if (folded.isEmpty() || !word.endsWith(folded))
                return -1;
            word.chop(folded.size());
        }
    }
    return end;
}

char lastFoldedLetter(char16_t c)
{
    if (c < 0x80)
        return lowerCase(c);
    const QLatin1StringView folded = asciiFolding(c);
    return folded.isEmpty() ? '\0' : folded.back().toLatin1();
}

} // namespace Scan
