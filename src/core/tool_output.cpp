#include "core/tool_output.h"

#include "core/bounded_text.h"

#include <QJsonDocument>
#include <QLocale>
#include <QStringDecoder>

#include <limits>
#include <optional>

namespace {

constexpr qsizetype kLongestText = 4096;

bool isNewline(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x000A && u <= 0x000D) || u == 0x0085 || u == 0x2028 || u == 0x2029;
}

std::optional<QJsonObject> parseObject(QStringView text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

} // namespace

QString ZarvoText(QByteArrayView bytes)
{
    // Stateless, so that a sequence cut off at the end counts as an error instead of waiting for more.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    return text;
}

QList<QJsonObject> ZarvoJSON(const QString &text)
{
    QList<QJsonObject> objects;
    VisitJSON(text, [&](const QJsonObject &object) {
        objects.append(object);
        return true;
    });
    return objects;
}

void VisitJSON(const QString &text, const std::function<bool(const QJsonObject &)> &take)
{
    const QStringView all(text);
    bool found = false;
    qsizetype start = 0;
    while (start < all.size()) {
        qsizetype end = start;
        qsizetype brace = -1;
        for (; end < all.size() && !isNewline(all[end]); ++end) {
            if (brace < 0 && all[end] == u'{')
                brace = end;
        }
        if (brace >= 0) {
            if (const auto object = parseObject(all.sliced(brace, end - brace))) {
                found = true;
                if (!take(*object))
                    return;
            }
        }
        start = end + 1;
    }
    if (found)
        return;
    if (const auto object = parseObject(all))
        take(*object);
}

QString JSONText(const QJsonValue &value)
{
    if (value.isString())
        return BoundedText(value.toString(), kLongestText);
    if (!value.isDouble())
        return {};
    // A whole number keeps all its digits only as an integer: store identifiers may exceed 2^53. The default,
    // which stands for "not whole", is told from a true zero by the number itself.
    if (const qint64 whole = value.toInteger(0); whole != 0 || value.toDouble() == 0.0)
        return QString::number(whole);
    return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
}

bool JSONTruth(const QJsonValue &value)
{
    return value.isBool() ? value.toBool() : value.toDouble() != 0.0;
}

qint64 IntegerValue(QStringView text)
{
    constexpr qint64 largest = std::numeric_limits<qint64>::max();
    constexpr qint64 smallest = std::numeric_limits<qint64>::min();
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    const bool negative = i < text.size() && text[i] == u'-';
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+'))
        ++i;
    qint64 value = 0; // counted downwards: the negative range is the larger one
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        if (__builtin_mul_overflow(value, qint64{10}, &value) ||
            __builtin_sub_overflow(value, qint64{text[i].unicode() - u'0'}, &value))
            return negative ? smallest : largest;
    }
    if (negative)
        return value;
    return value == smallest ? largest : -value;
}
