#include "store/redaction_rules.h"

#include "store/text_scanning.h"

#include <array>

using namespace Qt::StringLiterals;

// The rules with a word and a separator start from the separator and look back: separators are rare, each has
// one word at most, and the stretches looked at before two of them never overlap. Looking from the words
// instead would read a run of blanks, or a run of vendor keys, anew for each of the words that end at the
// same place.

namespace Redaction {
namespace {

constexpr qsizetype shortestData = 48;    // units of a run that is data
constexpr qsizetype shortestTopLevel = 2; // letters after the last full stop of an account name

/// `[A-Z0-9._%+-]`, any case.
constexpr bool isAccountCharacter(char16_t c)
{
    return Scan::isLetter(c) || Scan::isDigit(c) || c == u'.' || c == u'_' || c == u'%' || c == u'+' ||
           c == u'-';
}

/// `[A-Z0-9.-]`, any case.
constexpr bool isDomainCharacter(char16_t c)
{
    return Scan::isLetter(c) || Scan::isDigit(c) || c == u'.' || c == u'-';
}

/// `[a-z0-9-]`, any case.
constexpr bool isKeyCharacter(char16_t c)
{
    return Scan::isLetter(c) || Scan::isDigit(c) || c == u'-';
}

/// `[A-Za-z0-9_+/=.-]`: base64 in both its alphabets, hexadecimal, dotted tokens. Case is not folded.
constexpr bool isDataCharacter(char16_t c)
{
    return c < 0x80 &&
           (Scan::isLetter(c) || Scan::isBetween(c, u'-', u'9') || c == u'_' || c == u'+' || c == u'=');
}

/// `[^\s,;]`
bool isBareValueCharacter(char16_t c)
{
    return !Scan::isBlank(c) && c != u',' && c != u';';
}

/// `[^\s<>"']`
bool isAddressCharacter(char16_t c)
{
    return !Scan::isBlank(c) && c != u'<' && c != u'>' && !Scan::isQuote(c);
}

/// The position of the next `[:=]`, or the end of the text.
qsizetype nextSeparator(QStringView text, qsizetype from)
{
    return Scan::endOfRun(text, from, [](char16_t c) { return c != u':' && c != u'='; });
}

/// The end of `\s*[^\r\n]+` from `start` on; -1 when there is no match.
qsizetype endOfHeaderValue(QStringView text, qsizetype start)
{
    const qsizetype value = Scan::endOfRun(text, start, Scan::isBlank);
    if (value < text.size())
        return Scan::endOfRun(text, value, [](char16_t c) { return !Scan::isLineEnd(c); });
    // Nothing but blanks up to the end of the text: the last of them that ends no line is the value.
    const qsizetype end = Scan::startOfRun(text, start, text.size(), Scan::isLineEnd);
    return end > start ? end : -1;
}

/// The end of `[A-Z0-9.-]+\.[A-Z]{2,}` from `start` on; -1 when there is no match. The last full stop that
/// has letters enough behind it counts, and what follows those letters is left.
qsizetype endOfDomain(QStringView text, qsizetype start)
{
    qsizetype letters = 0;
    for (qsizetype at = Scan::endOfRun(text, start, isDomainCharacter) - 1; at > start; --at) {
        const char16_t c = text[at].unicode();
        if (c == u'.' && letters >= shortestTopLevel)
            return at + 1 + letters;
        letters = Scan::isLetter(c) ? letters + 1 : 0;
    }
    return -1;
}

/// The leftmost start of `x-apple-[a-z0-9-]+` that ends at `end`; -1 when there is none.
qsizetype startOfVendorKey(QStringView text, qsizetype from, qsizetype end)
{
    static constexpr auto prefix = "x-apple-"_L1;
    const qsizetype run = Scan::startOfRun(text, from, end, isKeyCharacter);
    if (end - run <= prefix.size())
        return -1;
    const qsizetype start = text.sliced(run, end - run - 1).indexOf(prefix, 0, Qt::CaseInsensitive);
    return start >= 0 ? run + start : -1;
}

/// The leftmost start of a key that ends at `end`, the quote before it included; -1 when no key ends there.
qsizetype startOfSecretKey(QStringView text, qsizetype from, qsizetype end)
{
    static constexpr std::array keys{
        "password"_L1,      "passwd"_L1,        "pwd"_L1,     "token"_L1,           "passwordtoken"_L1,
        "access_token"_L1,  "refresh_token"_L1, "session"_L1, "cookie"_L1,          "set-cookie"_L1,
        "authorization"_L1, "dsid"_L1,          "otp"_L1,     "verificationcode"_L1};
    // A vendor key may end in one of these keys but never lies within one: it begins further left.
    qsizetype start = startOfVendorKey(text, from, end);
    if (start < 0)
        start = Scan::startOfAnyWord(text, from, end, keys, [](qsizetype) { return true; });
    return start > from && Scan::isQuote(text[start - 1].unicode()) ? start - 1 : start;
}

/// The end of `"[^"]*"|'[^']*'|[^\s,;]+` at `start`; -1 when there is no match.
qsizetype endOfSecretValue(QStringView text, qsizetype start)
{
    if (start < text.size() && Scan::isQuote(text[start].unicode())) {
        // A search in vain shows that the rest of the text has no such quote: it happens once for either
        // kind.
        if (const qsizetype closing = text.indexOf(text[start], start + 1); closing >= 0)
            return closing + 1;
    }
    const qsizetype end = Scan::endOfRun(text, start, isBareValueCharacter);
    return end > start ? end : -1;
}

} // namespace

Found findControlSequence(QStringView text, qsizetype from)
{
    constexpr QStringView introducer = u"\x1b[";
    for (qsizetype at = text.indexOf(introducer, from); at >= 0; at = text.indexOf(introducer, at + 1)) {
        const qsizetype parameters = at + introducer.size();
        const qsizetype intermediates =
            Scan::endOfRun(text, parameters, [](char16_t c) { return Scan::isBetween(c, u'0', u'?'); });
        const qsizetype last =
            Scan::endOfRun(text, intermediates, [](char16_t c) { return Scan::isBetween(c, u' ', u'/'); });
        if (last < text.size() && Scan::isBetween(text[last].unicode(), u'@', u'~'))
            return Match{at, last + 1};
    }
    return {};
}

Found findHeader(QStringView text, qsizetype from)
{
    static constexpr std::array names{"authorization"_L1, "cookie"_L1, "set-cookie"_L1};
    for (qsizetype at = nextSeparator(text, from); at < text.size(); at = nextSeparator(text, at + 1)) {
        const qsizetype nameEnd = Scan::startOfRun(text, from, at, Scan::isBlank);
        const qsizetype start = Scan::startOfAnyWord(text, from, nameEnd, names, [text](qsizetype name) {
            return Scan::isBoundaryBefore(text, name);
        });
        if (start < 0)
            continue;
        if (const qsizetype end = endOfHeaderValue(text, at + 1); end >= 0)
            return Match{start, end};
    }
    return {};
}

Found findAddress(QStringView text, qsizetype from)
{
    static constexpr std::array schemes{"http"_L1, "https"_L1, "itms-services"_L1};
    constexpr QStringView mark = u"://";
    for (qsizetype at = text.indexOf(mark, from); at >= 0; at = text.indexOf(mark, at + 1)) {
        const qsizetype start = Scan::startOfAnyWord(text, from, at, schemes, [text](qsizetype scheme) {
            return Scan::isBoundaryBefore(text, scheme);
        });
        if (start < 0)
            continue;
        const qsizetype rest = at + mark.size();
        if (const qsizetype end = Scan::endOfRun(text, rest, isAddressCharacter); end > rest)
            return Match{start, end};
    }
    return {};
}

Found findBearer(QStringView text, qsizetype from)
{
    static constexpr auto word =
        "bearer"_L1; // nothing beyond ASCII folds to its letters: six units in any case
    const auto isOther = [](char16_t c) { return c != u'b' && c != u'B'; };
    for (qsizetype at = Scan::endOfRun(text, from, isOther); text.size() - at > word.size();
         at = Scan::endOfRun(text, at + 1, isOther)) {
        const qsizetype blanks = at + word.size();
        if (Scan::startOfWord(text, at, blanks, word) < 0 || !Scan::isBoundaryBefore(text, at))
            continue;
        const qsizetype value = Scan::endOfRun(text, blanks, Scan::isBlank);
        if (value == blanks)
            continue; // before the value is looked at: it can hold many more of these words
        const qsizetype end = Scan::endOfRun(text, value, isBareValueCharacter);
        if (end > value)
            return Match{at, end};
    }
    return {};
}

Found findAccount(QStringView text, qsizetype from)
{
    for (qsizetype at = text.indexOf(u'@', from); at >= 0; at = text.indexOf(u'@', at + 1)) {
        const qsizetype start = Scan::startOfRun(text, from, at, isAccountCharacter);
        if (start == at)
            continue;
        if (const qsizetype end = endOfDomain(text, at + 1); end >= 0)
            return Match{start, end};
    }
    return {};
}

Found findSecret(QStringView text, qsizetype from)
{
    for (qsizetype at = nextSeparator(text, from); at < text.size(); at = nextSeparator(text, at + 1)) {
        qsizetype keyEnd = Scan::startOfRun(text, from, at, Scan::isBlank);
        if (keyEnd > from && Scan::isQuote(text[keyEnd - 1].unicode()))
            --keyEnd;
        const qsizetype start = startOfSecretKey(text, from, keyEnd);
        if (start < 0)
            continue;
        if (const qsizetype end = endOfSecretValue(text, Scan::endOfRun(text, at + 1, Scan::isBlank));
            end >= 0)
            return Match{start, end};
    }
    return {};
}

Found findHomeFolder(QStringView text, qsizetype from)
{
    static constexpr std::array<QStringView, 2> parents{u"/Users/", u"/home/"};
    for (qsizetype at = text.indexOf(u'/', from); at >= 0; at = text.indexOf(u'/', at + 1)) {
        for (const QStringView parent : parents) {
            if (!text.sliced(at).startsWith(parent))
                continue;
            const qsizetype name = at + parent.size();
            const qsizetype end =
                Scan::endOfRun(text, name, [](char16_t c) { return c != u'/' && !Scan::isBlank(c); });
            if (end > name)
                return Match{at, end};
        }
    }
    return {};
}

Found findData(QStringView text, qsizetype from)
{
    for (qsizetype start = from; start < text.size();) {
        const qsizetype end = Scan::endOfRun(text, start, isDataCharacter);
        if (end - start >= shortestData)
            return Match{start, end};
        start = end + 1;
    }
    return {};
}

} // namespace Redaction
