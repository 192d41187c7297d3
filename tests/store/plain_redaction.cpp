#include "plain_redaction.h"

using namespace Qt::StringLiterals;

namespace {

icu::UnicodeString toICU(const QString &text)
{
    return icu::UnicodeString(reinterpret_cast<const char16_t *>(text.utf16()), int32_t(text.size()));
}

QString fromICU(const icu::UnicodeString &text)
{
    return QString(reinterpret_cast<const QChar *>(text.getBuffer()), text.length());
}

void check(UErrorCode status)
{
    if (U_FAILURE(status))
        qFatal("the engine failed: %s", u_errorName(status));
}

} // namespace

const std::array<RedactionExpression, 8> redactionExpressions{
    RedactionExpression{"control sequence", Redaction::findControlSequence, uR"(\x1b\[[0-?]*[ -/]*[@-~])"_s,
                        u""_s},
    RedactionExpression{"header", Redaction::findHeader,
                        uR"((?im)\b(?:authorization|cookie|set-cookie)\s*[:=]\s*[^\r\n]+)"_s,
                        u"[заголовок скрыт]"_s},
    RedactionExpression{"address", Redaction::findAddress,
                        uR"rx((?i)\b(?:https?|itms-services)://[^\s<>\"']+)rx"_s, u"[адрес скрыт]"_s},
    RedactionExpression{"bearer", Redaction::findBearer, uR"((?i)\bBearer\s+[^\s,;]+)"_s,
                        u"Bearer [скрыто]"_s},
    RedactionExpression{"account", Redaction::findAccount, uR"((?i)[A-Z0-9._%+-]+@[A-Z0-9.-]+\.[A-Z]{2,})"_s,
                        u"[аккаунт скрыт]"_s},
    RedactionExpression{
        "secret", Redaction::findSecret,
        uR"rx((?i)[\"']?(?:password|passwd|pwd|token|passwordToken|access_token|refresh_token|session|)rx"
        uR"rx(cookie|set-cookie|authorization|dsid|otp|verificationCode|x-apple-[a-z0-9-]+)[\"']?\s*)rx"
        uR"rx([:=]\s*(?:\"[^\"]*\"|'[^']*'|[^\s,;]+))rx"_s,
        u"[секрет скрыт]"_s},
    RedactionExpression{"home folder", Redaction::findHomeFolder, uR"(/(?:Users|home)/[^/\s]+)"_s,
                        u"/Users/[пользователь]"_s},
    RedactionExpression{"data", Redaction::findData, u"[A-Za-z0-9_+/=.-]{48,}"_s, u"[данные скрыты]"_s},
};

Spans spansByHand(const RedactionExpression &expression, const QString &text)
{
    Spans spans;
    qsizetype from = 0;
    while (const auto match = expression.find(text, from)) {
        spans.emplace_back(match->start, match->end);
        from = match->end;
    }
    return spans;
}

RedactionEngine::RedactionEngine()
{
    for (const RedactionExpression &expression : redactionExpressions) {
        UErrorCode status = U_ZERO_ERROR;
        m_matchers.push_back(std::make_unique<icu::RegexMatcher>(toICU(expression.pattern), 0, status));
        check(status);
    }
}

Spans RedactionEngine::spans(std::size_t rule, const QString &text)
{
    const icu::UnicodeString input = toICU(text);
    UErrorCode status = U_ZERO_ERROR;
    Spans result;
    icu::RegexMatcher &matcher = *m_matchers[rule];
    matcher.reset(input);
    while (matcher.find(status))
        result.emplace_back(matcher.start(status), matcher.end(status));
    check(status);
    return result;
}

QString RedactionEngine::replaced(std::size_t rule, const QString &text)
{
    const icu::UnicodeString input = toICU(text);
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher &matcher = *m_matchers[rule];
    matcher.reset(input);
    QString result = fromICU(matcher.replaceAll(toICU(redactionExpressions[rule].replacement), status));
    check(status);
    return result;
}
