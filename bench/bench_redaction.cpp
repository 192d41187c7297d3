// Redaction: the shapes of text on which backtracking goes wild, and plain ICU on an ordinary text.
#include "measuring.h"
#include "store/diagnostic_redaction.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kMegabyte = 1'000'000;
constexpr double kLimit = 0.100;

QString repeated(const QString &piece)
{
    return piece.repeated(kMegabyte / piece.size());
}

double icuTime(const QString &text)
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
    const double start = now();
    for (const char16_t *pattern : patterns) {
        UErrorCode status = U_ZERO_ERROR;
        icu::RegexMatcher matcher(icu::UnicodeString(pattern), 0, status);
        matcher.reset(result);
        result = matcher.replaceAll(icu::UnicodeString(u"[x]"), status);
    }
    return now() - start;
}

} // namespace

void benchRedaction()
{
    const std::pair<const char *, QString> shapes[] = {
        {"address characters", repeated(u"a"_s)},
        {"a@a@a@…", repeated(u"a@"_s)},
        {"a.a.a.…@", repeated(u"a."_s) + u'@'},
        {"@a.a.a.…", u"x@"_s + repeated(u"a."_s)},
        {"x-apple-x-apple-…", repeated(u"x-apple-"_s)},
        {"password and blanks", u"password"_s + repeated(u" "_s)},
        {"keys without separators", repeated(u"password "_s)},
        {"unclosed quotes", repeated(u"token=\""_s)},
        {"blanks before separators", repeated(u"cookie   \n"_s)},
        {"control sequences cut short", repeated(u"\x1b[0;"_s)},
        {"Bearer and blanks", repeated(u"Bearer  "_s)},
        {"https:// in a row", repeated(u"https://"_s)},
        {"/home/ in a row", repeated(u"/home/"_s)},
        {"separators", repeated(u"="_s)},
        {"separators behind letters", repeated(u"e="_s)},
        {"separators behind long s", repeated(u"ſ="_s)},
        {":// in a row", repeated(u"://"_s)},
        {"runs of 47", repeated(QString(47, u'z') + u' ')},
    };
    double slowest = 0;
    QString which;
    for (const auto &[name, text] : shapes) {
        const double seconds = median(timesOf(5, [&, &shape = text] { RedactSecrets(shape); }));
        if (seconds > slowest) {
            slowest = seconds;
            which = QString::fromUtf8(name);
        }
    }
    report(
        u"redaction of 1 MB of hostile text, slowest of %1 shapes (%2)"_s.arg(std::size(shapes)).arg(which),
        u"%1 ms"_s.arg(slowest * 1e3, 0, 'f', 1), u"≤ 100 ms"_s, slowest <= kLimit);

    const QString line =
        u"2026-01-02T03:04:05Z ERR request failed: Get https://example.com/a?b=c: status 500 "
        "user=someone@example.com token=abcdef path=/home/someone/file\n"_s;
    const QString ordinary = line.repeated(100'000 / line.size());
    const double ours = median(timesOf(9, [&] { RedactSecrets(ordinary); }));
    std::vector<double> plain(9);
    std::generate(plain.begin(), plain.end(), [&] { return icuTime(ordinary); });
    report(u"redaction of 100 KB of ordinary log, over plain ICU"_s,
           u"%1 ms over %2 ms, ratio %3"_s.arg(ours * 1e3, 0, 'f', 2)
               .arg(median(plain) * 1e3, 0, 'f', 2)
               .arg(ours / median(plain), 0, 'f', 2));
}
