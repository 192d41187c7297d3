#include "fuzzing.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr QByteArrayView kEscape = "\\u";
constexpr qsizetype kEscapedDigits = 4;
constexpr int kHexadecimal = 16;

} // namespace

QByteArrayView BytesOf(const std::uint8_t *data, std::size_t size)
{
    return {data, static_cast<qsizetype>(size)};
}

void Require(bool holds, const char *promise)
{
    if (holds)
        return;
    std::fprintf(stderr, "Not true: %s\n", promise);
    std::abort();
}

QString TextFrom(QByteArrayView bytes)
{
    QString text;
    while (!bytes.isEmpty()) {
        const qsizetype escape = bytes.indexOf(kEscape);
        if (escape < 0)
            return text + QString::fromUtf8(bytes);
        text += QString::fromUtf8(bytes.first(escape));
        bytes = bytes.sliced(escape + kEscape.size());
        bool isNumber = false;
        const QByteArray digits = bytes.first(qMin(kEscapedDigits, bytes.size())).toByteArray();
        const auto unit = digits.toUShort(&isNumber, kHexadecimal);
        if (isNumber)
            bytes = bytes.sliced(digits.size());
        text += isNumber ? QChar(unit) : QChar(u'\\');
    }
    return text;
}

QList<QByteArrayView> PartsOf(QByteArrayView bytes, qsizetype count)
{
    QList<QByteArrayView> parts;
    while (parts.size() + 1 < count) {
        const qsizetype end = bytes.indexOf('\0');
        parts.append(end < 0 ? bytes : bytes.first(end));
        bytes = end < 0 ? QByteArrayView() : bytes.sliced(end + 1);
    }
    parts.append(bytes);
    return parts;
}
