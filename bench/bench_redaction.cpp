// Redaction: hostile shapes of text, how its time grows, and plain ICU on an ordinary text.
#include "instructions.h"
#include "measuring.h"
#include "store/diagnostic_redaction.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kMegabyte = 1'000'000;
constexpr double kLimit = 0.100;

constexpr qsizetype kSizes[] = {1'000, 10'000, 100'000, 1'000'000, 10'000'000};
constexpr qsizetype kCountedSizes[] = {10'000, 100'000, 1'000'000};
constexpr double kGrowth = 2;        // of the time for a character, from 100 KB to 10 MB: caches are outgrown
constexpr double kCountGrowth = 1.1; // of the instructions for a character

struct Shape
{
    const char *name;
    QString before;
    QString piece;
    QString after;

    QString text(qsizetype size) const { return before + piece.repeated(size / piece.size()) + after; }
};

// On which backtracking goes wild, and which make the search for known secrets work hardest.
const Shape kShapes[] = {
    {"address characters", {}, u"a"_s, {}},
    {"a@a@a@…", {}, u"a@"_s, {}},
    {"a.a.a.…@", {}, u"a."_s, u"@"_s},
    {"@a.a.a.…", u"x@"_s, u"a."_s, {}},
    {"x-apple-x-apple-…", {}, u"x-apple-"_s, {}},
    {"password and blanks", u"password"_s, u" "_s, {}},
    {"keys without separators", {}, u"password "_s, {}},
    {"unclosed quotes", {}, u"token=\""_s, {}},
    {"blanks before separators", {}, u"cookie   \n"_s, {}},
    {"control sequences cut short", {}, u"\x1b[0;"_s, {}},
    {"Bearer and blanks", {}, u"Bearer  "_s, {}},
    {"https:// in a row", {}, u"https://"_s, {}},
    {"/home/ in a row", {}, u"/home/"_s, {}},
    {"separators", {}, u"="_s, {}},
    {"separators behind letters", {}, u"e="_s, {}},
    {"separators behind long s", {}, u"ſ="_s, {}},
    {":// in a row", {}, u"://"_s, {}},
    {"runs of 47", {}, u"z"_s.repeated(47) + u' ', {}},
    {"digits", {}, u"9 "_s, {}},
    {"the account in a row", {}, u"+7 916 555-01-42,"_s, {}},
    {"the home folder but for its end", {}, u"/srv/семья/Йори"_s, {}},
    {"escaped letters", {}, u"%D0%B9\\u0439"_s, {}},
    {"backslashes", {}, u"\\"_s, {}},
};

KnownSecrets knownSecrets()
{
    KnownSecrets known;
    known.addAccount(u"anna.petrova@mail.example"_s);
    known.addAccount(u"+79165550142"_s);
    known.addHomeFolder(u"/srv/семья/Йорик"_s);
    known.addPhoneIdentifier(u"00008030-001A2D3C0E84802E"_s);
    known.addPhoneName(u"iPhone Анны"_s);
    return known;
}

// What the tool prints in a bad hour.
QString ordinaryLog(qsizetype size)
{
    const QString line =
        u"2026-01-02T03:04:05Z ERR request failed: Get https://example.com/a?b=c: status 500 "
        "user=someone@example.com token=abcdef path=/home/someone/file\n"_s;
    return line.repeated(std::max<qsizetype>(1, size / line.size()));
}

void redactByICU(const QString &text)
{
    const char16_t *patterns[] = {
        uR"(\x1b\[[0-?]*[ -/]*[@-~])",
        uR"((?im)\b(?:authorization|cookie|set-cookie)\s*[:=]\s*[^\r\n]+)",
        uR"((?i)\b(?:https?|itms-services)://[^\s<>\"']+)",
        uR"((?i)\bBearer\s+[^\s,;]+)",
        uR"((?i)[A-Z0-9._%+-]+@[A-Z0-9.-]+\.[A-Z]{2,})",
        uR"((?i)[\"']?(?:password|passwd|pwd|token|passwordToken|access_token|refresh_token|session|cookie|set-cookie|authorization|dsid|otp|verificationCode|x-apple-[a-z0-9-]+)[\"']?\s*[:=]\s*(?:\"[^\"]*\"|'[^']*'|[^\s,;]+))",
        uR"(/(?:Users|home)/[^/\s]+)",
        uR"([A-Za-z0-9_+/=.-]{48,})",
    };
    icu::UnicodeString result(text.utf16(), static_cast<int32_t>(text.size()));
    for (const char16_t *pattern : patterns) {
        UErrorCode status = U_ZERO_ERROR;
        icu::RegexMatcher matcher(icu::UnicodeString(pattern), 0, status);
        matcher.reset(result);
        result = matcher.replaceAll(icu::UnicodeString(u"[x]"), status);
    }
}

// The slowest shape at a megabyte, which is the one to look at more closely.
const Shape &findSlowest(const KnownSecrets &known)
{
    const Shape *slowest = kShapes;
    double longest = 0;
    for (const Shape &shape : kShapes) {
        const QString text = shape.text(kMegabyte);
        const double seconds = median(processorTimesOf(5, [&] { RedactSecrets(text, known); }));
        if (seconds > longest) {
            longest = seconds;
            slowest = &shape;
        }
    }
    report(u"redaction of 1 MB of hostile text, known secrets looked for, slowest of %1 shapes (%2)"_s
               .arg(std::size(kShapes))
               .arg(QString::fromUtf8(slowest->name)),
           u"%1 ms"_s.arg(longest * 1e3, 0, 'f', 1), u"≤ 100 ms"_s, longest <= kLimit);
    return *slowest;
}

template <typename Text, typename Work>
void measureGrowth(const QString &what, Text textOf, Work work)
{
    QStringList each;
    std::vector<double> costs;
    for (const qsizetype size : kSizes) {
        const QString text = textOf(size);
        const int rounds = size > kMegabyte ? 3 : 7;
        const auto times = processorTimesOf(rounds, [&] { work(text); });
        costs.push_back(*std::min_element(times.begin(), times.end()) * 1e9 / double(text.size()));
        each << QString::number(costs.back(), 'f', 1);
    }
    const double growth = costs[4] / costs[2];
    report(what + u", ns a character at 1, 10, 100 KB, 1, 10 MB"_s,
           u"%1; from 100 KB to 10 MB ×%2"_s.arg(each.join(u", "_s)).arg(growth, 0, 'f', 2), u"≤ ×2"_s,
           growth <= kGrowth);
}

void countGrowth(const Shape &shape, const QString &folder)
{
    QStringList each;
    std::vector<double> costs;
    for (const qsizetype size : kCountedSizes) {
        const auto number = QString::number(&shape - kShapes);
        const auto count = instructionsOf({u"redaction"_s, number, QString::number(size)}, folder);
        if (!count)
            return report(u"the same in instructions"_s, u"counted by "_s + whoCounts());
        costs.push_back(*count / double(size));
        each << QString::number(costs.back(), 'f', 1);
    }
    const double growth = *std::max_element(costs.begin(), costs.end()) / costs.front();
    report(u"the hostile text in instructions a character at 10, 100 KB, 1 MB, counted by "_s + whoCounts(),
           u"%1; at most ×%2"_s.arg(each.join(u", "_s)).arg(growth, 0, 'f', 3), u"≤ ×1.1"_s,
           growth <= kCountGrowth);
}

} // namespace

void countRedaction(const char *shape, const char *size)
{
    const QString text = kShapes[std::atoi(shape)].text(std::atoi(size));
    const KnownSecrets known = knownSecrets();
    counted([&] { RedactSecrets(text, known); });
}

void benchRedaction(const QString &folder)
{
    const KnownSecrets known = knownSecrets();
    const Shape &slowest = findSlowest(known);
    measureGrowth(
        u"redaction of that shape"_s, [&](qsizetype size) { return slowest.text(size); },
        [&](const QString &text) { RedactSecrets(text, known); });
    countGrowth(slowest, folder);
    measureGrowth(u"failure message from so much ordinary output"_s, ordinaryLog, [&](const QString &text) {
        ZarvoSafeStoreDiagnostic({1, text, {}, {}}, known);
    });

    const QString ordinary = ordinaryLog(100'000);
    const double ours = median(processorTimesOf(9, [&] { RedactSecrets(ordinary); }));
    const double plain = median(processorTimesOf(9, [&] { redactByICU(ordinary); }));
    report(u"redaction of 100 KB of ordinary log, over plain ICU"_s,
           u"%1 ms over %2 ms, ratio %3"_s.arg(ours * 1e3, 0, 'f', 2)
               .arg(plain * 1e3, 0, 'f', 2)
               .arg(ours / plain, 0, 'f', 2));
}
