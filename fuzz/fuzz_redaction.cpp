// What of the store tool's words is hidden before they are shown.
#include "fuzzing.h"
#include "store/diagnostic_redaction.h"
#include "store/plain_redaction.h"

#include <algorithm>
#include <chrono>
#include <ctime>

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = TextFrom(BytesOf(data, size));
    const QString redacted = RedactSecrets(text);
    if (text.size() <= kShortText) {
        checkAgainstEngine(text, redacted);
        if (std::none_of(text.begin(), text.end(), isLookedThrough))
            checkNothingIsLeft(redacted);
    }
    if (!text.isEmpty() && qHash(text, 0) % kLongTextOutOf == 0)
        checkTime(text);

    const QString shown = ZarvoSafeStoreDiagnostic({1, text, {}, {}});
    Require(shown.size() <= kLongestDiagnostic, "a diagnostic is bounded");
    const auto breaksLine = [](QChar c) { return c.category() == QChar::Other_Control; };
    Require(std::none_of(shown.begin(), shown.end(), breaksLine), "a diagnostic is one line");
    return 0;
}
