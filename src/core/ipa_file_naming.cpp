#include "core/ipa_file_naming.h"

#include <unicode/brkiter.h>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kNameBytes = 180;
constexpr qsizetype kVersionBytes = 50;
constexpr QStringView kForbidden = u"/\\:*?\"<>|";
constexpr QStringView kTrimmed = u" .-";

bool isControl(QChar c)
{
    return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format;
}

// Half of a surrogate pair, which the JSON of a tool can hold, has no UTF-8: what stands for it on the disk
// must be counted and shown as well.
QString withoutHalves(QString text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            ++i;
        else if (text[i].isSurrogate())
            text[i] = QChar::ReplacementCharacter;
    }
    return text;
}

QString withoutForbidden(QString text)
{
    for (QChar &c : text) {
        if (kForbidden.contains(c) || isControl(c))
            c = u'-';
    }
    return text;
}

QStringView trimmed(QStringView text)
{
    while (!text.isEmpty() && kTrimmed.contains(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && kTrimmed.contains(text.back()))
        text.chop(1);
    return text;
}

// Cuts between grapheme clusters only, at the last one that fits. Qt's own search for them takes surrogate
// pairs apart in a text with letters of some Asian scripts.
QString bounded(QStringView text, qsizetype bytes)
{
    const icu::UnicodeString units(false, text.utf16(), static_cast<int32_t>(text.size()));
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> clusters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status))
        return {};
    clusters->setText(units);
    qsizetype end = 0;
    qsizetype used = 0;
    for (qsizetype next = clusters->next(); next != icu::BreakIterator::DONE; next = clusters->next()) {
        used += text.sliced(end, next - end).toUtf8().size();
        if (used > bytes)
            break;
        end = next;
    }
    return text.first(end).toString();
}

QString component(const QString &text, const QString &fallback, qsizetype bytes)
{
    const QString clean = withoutForbidden(withoutHalves(text)).simplified();
    const QString result = bounded(trimmed(clean), bytes);
    return result.isEmpty() ? fallback : result;
}

} // namespace

QString ZarvoFilename(const QString &name, const QString &version)
{
    return u"%1-%2.ipa"_s.arg(component(name, u"Приложение"_s, kNameBytes),
                              component(version, u"без версии"_s, kVersionBytes));
}
