#include "store/unescaped_text.h"

#include "store/redaction_rules.h"
#include "store/text_scanning.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

struct Decoded
{
    char32_t character;
    qsizetype length; // in units of the original; 0 when there is nothing to decode
};

constexpr Decoded kNothing{0, 0};

// -1 when it is no hexadecimal digit.
constexpr int hexDigit(char16_t c)
{
    if (Scan::isDigit(c))
        return c - u'0';
    if (Scan::isBetween(c, u'a', u'f'))
        return c - u'a' + 10;
    return Scan::isBetween(c, u'A', u'F') ? c - u'A' + 10 : -1;
}

// -1 when `count` hexadecimal digits do not stand there.
int hexNumber(QStringView text, qsizetype at, int count)
{
    if (at + count > text.size())
        return -1;
    int number = 0;
    for (const QChar c : text.sliced(at, count)) {
        const int digit = hexDigit(c.unicode());
        if (digit < 0)
            return -1;
        number = number * 16 + digit;
    }
    return number;
}

// -1 when no percent-encoded byte stands there.
int percentByte(QStringView text, qsizetype at)
{
    return at < text.size() && text[at] == u'%' ? hexNumber(text, at + 1, 2) : -1;
}

// One character of percent-encoded UTF-8. What is no UTF-8 stays as it is written.
Decoded percentCharacter(QStringView text, qsizetype at)
{
    constexpr qsizetype byteLength = 3;
    const int lead = percentByte(text, at);
    if (lead < 0 || (lead & 0xC0) == 0x80 || lead >= 0xF8)
        return kNothing;
    const int followers = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    auto character = static_cast<char32_t>(followers == 0 ? lead : lead & (0x3F >> followers));
    for (int i = 1; i <= followers; ++i) {
        const int byte = percentByte(text, at + i * byteLength);
        if (byte < 0 || (byte & 0xC0) != 0x80)
            return kNothing;
        character = (character << 6U) | static_cast<char32_t>(byte & 0x3F);
    }
    return character > QChar::LastValidCodePoint ? kNothing
                                                 : Decoded{character, (followers + 1) * byteLength};
}

// An escape of JSON. JSON within JSON doubles the backslashes, hence any number of them is one.
Decoded escapedCharacter(QStringView text, qsizetype at)
{
    const qsizetype letter = Scan::endOfRun(text, at, [](char16_t c) { return c == u'\\'; });
    if (letter == at || letter == text.size())
        return letter == at ? kNothing : Decoded{u'\\', letter - at};
    switch (text[letter].unicode()) {
    case u'"':
    case u'\'':
    case u'/':
        return {text[letter].unicode(), letter + 1 - at};
    case u'n':
    case u'r':
    case u't':
        return {u'\n', letter + 1 - at};
    case u'u':
        if (const int unit = hexNumber(text, letter + 1, 4); unit >= 0)
            return {static_cast<char32_t>(unit), letter + 5 - at};
        break;
    default:
        break;
    }
    return {u'\\', letter - at};
}

Decoded plainCharacter(QStringView text, qsizetype at)
{
    if (text[at].isHighSurrogate() && at + 1 < text.size() && text[at + 1].isLowSurrogate())
        return {QChar::surrogateToUcs4(text[at], text[at + 1]), 2};
    return {text[at].unicode(), 1};
}

Decoded characterAt(QStringView text, qsizetype at)
{
    Decoded decoded = kNothing;
    if (text[at] == u'%')
        decoded = percentCharacter(text, at);
    else if (text[at] == u'\\')
        decoded = escapedCharacter(text, at);
    return decoded.length > 0 ? decoded : plainCharacter(text, at);
}

} // namespace

UnescapedText::UnescapedText(QStringView original)
{
    m_text.reserve(original.size());
    Redaction::Found sequence = Redaction::findControlSequence(original, 0);
    for (qsizetype at = 0; at < original.size();) {
        if (sequence && sequence->start == at) {
            at = sequence->end;
            sequence = Redaction::findControlSequence(original, at);
            continue;
        }
        const Decoded decoded = characterAt(original, at);
        append(decoded.character, at);
        at += decoded.length;
    }
    appendUnit(0, original.size());
    m_text.chop(1);
}

qsizetype UnescapedText::origin(qsizetype position) const
{
    const auto after = std::upper_bound(m_shifts.begin(), m_shifts.end(), position,
                                        [](qsizetype p, const Shift &shift) { return p < shift.position; });
    if (after == m_shifts.begin())
        return position;
    const Shift &shift = *std::prev(after);
    return shift.origin + (position - shift.position);
}

void UnescapedText::append(char32_t character, qsizetype origin)
{
    if (character < 0x80) {
        const auto unit = static_cast<char16_t>(character);
        appendUnit(Scan::isBetween(unit, u'A', u'Z') ? char16_t(unit - u'A' + u'a') : unit, origin);
        return;
    }
    const bool isTakenApart = QChar::decompositionTag(character) == QChar::Canonical;
    const QString parts = isTakenApart ? QChar::decomposition(character) : QString();
    for (const QChar part : parts)
        appendUnit(part.isSurrogate() ? part.unicode() : part.toCaseFolded().unicode(), origin);
    if (!parts.isEmpty())
        return;
    qsizetype unitOrigin = origin;
    for (const char16_t unit : QChar::fromUcs4(QChar::toCaseFolded(character)))
        appendUnit(unit, unitOrigin++);
}

void UnescapedText::appendUnit(char16_t unit, qsizetype origin)
{
    const qsizetype position = m_text.size();
    const qsizetype expected =
        m_shifts.empty() ? position : m_shifts.back().origin + (position - m_shifts.back().position);
    if (origin != expected)
        m_shifts.push_back({position, origin});
    m_text += QChar(unit);
}
