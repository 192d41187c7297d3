// What of the store tool's words is hidden before they are shown.
#include "fuzzing.h"
#include "store/diagnostic_redaction.h"
#include "store/plain_redaction.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <string_view>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The engine takes cubic time for some of the expressions.
constexpr qsizetype kShortText = 400;
constexpr qsizetype kLongestDiagnostic = 1400;

// Some 50 ms in this build when it is linear; more than a minute when it is quadratic. Not with every input:
// those are many and short.
constexpr qsizetype kLongText = 1 << 18;
constexpr std::chrono::nanoseconds kLinear = 3s;
constexpr std::size_t kLongTextOutOf = 64;

constexpr qsizetype kLongestSecret = 40;

RedactionEngine &engine()
{
    static RedactionEngine engine;
    return engine;
}

std::chrono::nanoseconds processorTime()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void checkAgainstEngine(const QString &text, const QString &redacted)
{
    QString expected = text;
    for (std::size_t rule = 0; rule < redactionExpressions.size(); ++rule) {
        Require(spansByHand(redactionExpressions[rule], text) == engine().spans(rule, text),
                "a rule by hand finds what its expression finds");
        expected = engine().replaced(rule, expected);
    }
    Require(redacted == expected, "a text comes out as from the expressions");
}

/// A word's beginning is looked for through these: where one stood between a word and what has been hidden, a
/// word can begin that did not before.
bool isLookedThrough(QChar c)
{
    return c.isMark() || c.category() == QChar::Other_Format || c.isSurrogate();
}

/// What may still be found is what has been put in the place of a secret, and whatever follows it at once.
void checkNothingIsLeft(const QString &redacted)
{
    for (std::size_t rule = 1; rule < redactionExpressions.size(); ++rule) {
        for (const auto &[start, end] : engine().spans(rule, redacted)) {
            Require(QStringView(redacted).sliced(start).startsWith(redactionExpressions[rule].replacement),
                    "no secret is left for which there is a rule");
        }
    }
}

void checkTime(const QString &text)
{
    const QString longText = text.repeated(kLongText / text.size() + 1);
    const auto start = processorTime();
    RedactSecrets(longText);
    Require(processorTime() - start < kLinear, "the time is linear");
}

/// A number that the same text gives in every run; Qt's hashes are seeded anew by each.
std::size_t numberOf(QStringView text)
{
    return std::hash<std::u16string_view>()({text.utf16(), static_cast<std::size_t>(text.size())});
}

/// Whether what stands there is, in part at least, what has been put in the place of a secret, or beside it:
/// a short secret counts as a whole word only, which it may have become by that.
bool isOfPlaceholder(const QString &redacted, qsizetype start, qsizetype end)
{
    const auto meets = [&](QStringView placeholder) {
        const qsizetype at =
            redacted.indexOf(placeholder, std::max<qsizetype>(0, start - placeholder.size()));
        return at >= 0 && at <= end;
    };
    using Kind = KnownSecrets::Kind;
    for (const Kind kind : {Kind::Account, Kind::HomeFolder, Kind::UserName, Kind::Phone}) {
        if (meets(PlaceholderFor(kind)))
            return true;
    }
    return std::any_of(redactionExpressions.begin(), redactionExpressions.end(), [&](const auto &rule) {
        return !rule.replacement.isEmpty() && meets(rule.replacement);
    });
}

/// A piece of the text, wherever it stands, is known: then it is not left.
void checkKnown(const QString &text)
{
    const std::size_t place = numberOf(text);
    const QString secret = text.mid(static_cast<qsizetype>(place % static_cast<std::size_t>(text.size())),
                                    1 + static_cast<qsizetype>(place >> 32) % kLongestSecret);
    KnownSecrets known;
    known.addAccount(secret);
    known.addNumber(secret);
    known.addHomeFolder(secret);
    known.addPhoneIdentifier(secret);
    known.addPhoneName(secret);
    const QString redacted = RedactSecrets(text, known);
    for (const auto &[start, end, kind] : known.findIn(redacted))
        Require(isOfPlaceholder(redacted, start, end), "what is known is not shown");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = TextFrom(BytesOf(data, size));
    const QString redacted = RedactSecrets(text);
    if (text.size() <= kShortText) {
        checkAgainstEngine(text, redacted);
        if (std::none_of(text.begin(), text.end(), isLookedThrough))
            checkNothingIsLeft(redacted);
        if (!text.isEmpty())
            checkKnown(text);
    }
    if (!text.isEmpty() && numberOf(text) % kLongTextOutOf == 0)
        checkTime(text);

    const QString shown = ZarvoSafeStoreDiagnostic({1, text, {}, {}});
    Require(shown.size() <= kLongestDiagnostic, "a diagnostic is bounded");
    const auto breaksLine = [](QChar c) { return c.category() == QChar::Other_Control; };
    Require(std::none_of(shown.begin(), shown.end(), breaksLine), "a diagnostic is one line");
    return 0;
}
