#include "store/diagnostic_redaction.h"

#include "core/tool_output.h"
#include "store/redaction_rules.h"
#include "store/text_scanning.h"

#include <QByteArray>
#include <QJsonObject>
#include <QStringView>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maximumLength = 1400; // of a diagnostic, in UTF-16 units

struct Rule
{
    Redaction::Found (*find)(QStringView text, qsizetype from) = nullptr;
    QStringView replacement;
};

/// Applied one after the other, each to what the one before has left. Headers go before addresses and
/// addresses before accounts, so that an address with an at sign in it is hidden as an address; data come
/// last, and never take a placeholder, which holds a blank and Cyrillic letters.
constexpr std::array rules{
    Rule{Redaction::findControlSequence, u""},
    Rule{Redaction::findHeader, u"[заголовок скрыт]"},
    Rule{Redaction::findAddress, u"[адрес скрыт]"},
    Rule{Redaction::findBearer, u"Bearer [скрыто]"},
    Rule{Redaction::findAccount, u"[аккаунт скрыт]"},
    Rule{Redaction::findSecret, u"[секрет скрыт]"},
    Rule{Redaction::findHomeFolder, u"/Users/[пользователь]"},
    Rule{Redaction::findData, u"[данные скрыты]"},
};

/// What is known of each unit of a text while the rules change it.
constexpr char kUnmarked = 0;
constexpr char kPlacedByRule = 1;
constexpr char kFirstKind = 2; // of a known secret, and on

/// A known secret is only marked before the rules run, and taken out after them: a placeholder in its place
/// would cut in two what a rule hides as a whole, an address for instance, and show the rest of it.
struct MarkedText
{
    QString text;
    QByteArray marks; // as long as the text, or empty when it holds no known secret
};

MarkedText marked(const QString &text, const KnownSecrets &known)
{
    MarkedText result{text, {}};
    const auto occurrences = known.findIn(text);
    if (!occurrences.empty())
        result.marks.fill(kUnmarked, text.size());
    for (const auto &[start, end, kind] : occurrences)
        std::fill(result.marks.begin() + start, result.marks.begin() + end,
                  static_cast<char>(kFirstKind + static_cast<int>(kind)));
    return result;
}

void replaceMatches(MarkedText &marked, const Rule &rule)
{
    const auto &[text, marks] = marked;
    Redaction::Found match = rule.find(text, 0);
    if (!match)
        return;
    MarkedText replaced;
    replaced.text.reserve(text.size());
    replaced.marks.reserve(marks.size());
    qsizetype copied = 0;
    const auto copyUpTo = [&, &text = text, &marks = marks](qsizetype end) {
        replaced.text += QStringView(text).sliced(copied, end - copied);
        if (!marks.isEmpty())
            replaced.marks += QByteArrayView(marks).sliced(copied, end - copied);
    };
    for (; match; match = rule.find(text, copied)) {
        copyUpTo(match->start);
        replaced.text += rule.replacement;
        if (!marks.isEmpty())
            replaced.marks.resize(replaced.text.size(), kPlacedByRule);
        copied = match->end;
    }
    copyUpTo(text.size());
    marked = std::move(replaced);
}

/// What the rules have left of the known secrets goes. The rest of one of which a rule has hidden a part
/// needs no placeholder of its own.
QString withoutKnownSecrets(const MarkedText &marked)
{
    const auto &[text, marks] = marked;
    if (marks.isEmpty())
        return text;
    QString shown;
    shown.reserve(text.size());
    for (qsizetype start = 0, end = 0; start < text.size(); start = end) {
        const char mark = marks[start];
        while (end < text.size() && marks[end] == mark)
            ++end;
        const bool isRest = (start > 0 && marks[start - 1] == kPlacedByRule) ||
                            (end < text.size() && marks[end] == kPlacedByRule);
        if (mark < kFirstKind)
            shown += QStringView(text).sliced(start, end - start);
        else if (!isRest)
            shown += PlaceholderFor(static_cast<KnownSecrets::Kind>(mark - kFirstKind));
    }
    return shown;
}

bool tellsOfFailure(const QJsonObject &object)
{
    static constexpr std::array levels{"error"_L1, "fatal"_L1, "panic"_L1};
    const QString level = object["level"_L1].toString();
    return (object.contains("success"_L1) && !JSONTruth(object["success"_L1])) ||
           std::find(levels.begin(), levels.end(), level) != levels.end();
}

void append(QString &joined, bool &any, const QString &text)
{
    joined += any ? u" • "_s + text : text;
    any = true;
}

/// Blanks, control and format characters are what separates words.
bool separatesWords(char32_t c)
{
    const QChar::Category category = QChar::category(c);
    const bool isBlank = c <= 0xFFFF && Scan::isBlank(static_cast<char16_t>(c)); // there are none beyond
    return isBlank || category == QChar::Other_Control || category == QChar::Other_Format;
}

/// The words of the text with one space between them, cut to the length of a diagnostic.
QString singleLine(const QString &text)
{
    QString line;
    bool wordEnded = false;
    for (qsizetype i = 0; i < text.size() && line.size() < maximumLength;) {
        const bool isPair = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const qsizetype length = isPair ? 2 : 1;
        const char32_t c = isPair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : text[i].unicode();
        if (separatesWords(c)) {
            wordEnded = !line.isEmpty();
        } else {
            if (wordEnded)
                line += u' ';
            wordEnded = false;
            line += QStringView(text).sliced(i, length);
        }
        i += length;
    }
    line.truncate(maximumLength);
    return line;
}

} // namespace

QString RedactSecrets(const QString &text, const KnownSecrets &known)
{
    MarkedText redacted = marked(text, known);
    for (const Rule &rule : rules)
        replaceMatches(redacted, rule);
    return withoutKnownSecrets(redacted);
}

void ReportedErrors::take(const QJsonObject &object)
{
    m_hasObjects = true;
    if (const QString error = object["error"_L1].toString(); !error.isEmpty())
        append(m_errors, m_hasErrors, error);
    const QJsonValue message = object["message"_L1];
    if (!m_hasErrors && message.isString() && tellsOfFailure(object))
        append(m_messages, m_hasMessages, message.toString());
}

std::optional<QString> ReportedErrors::text() const
{
    if (!m_hasObjects)
        return std::nullopt;
    return m_hasErrors ? m_errors : m_messages;
}

QString SafeDiagnostic(const ToolResult &result, const std::optional<QString> &reported,
                       const KnownSecrets &known)
{
    return singleLine(RedactSecrets(reported ? *reported : result.out + u'\n' + result.err, known));
}

QString ZarvoSafeStoreDiagnostic(const ToolResult &result, const KnownSecrets &known)
{
    ReportedErrors errors;
    VisitJSON(result.out + u'\n' + result.err, [&errors](const QJsonObject &object) {
        errors.take(object);
        return true;
    });
    return SafeDiagnostic(result, errors.text(), known);
}
