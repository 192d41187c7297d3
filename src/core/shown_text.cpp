#include "core/shown_text.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestExplanation = 2000;
constexpr qsizetype kLongestName = 200; // a bundle identifier has at most 155
const QString kParagraphBreak = u"\n\n"_s;

bool breaksLine(QChar character)
{
    switch (character.category()) {
    case QChar::Other_Control:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

// Invisible, and able to turn around what stands beside them: "gnp.exe" would read "exe.png".
bool turnsText(QChar character)
{
    const char16_t unit = character.unicode();
    return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x202A && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069);
}

QString bounded(const QString &text, qsizetype longest)
{
    if (text.size() <= longest)
        return text;
    const bool splitsPair = text.at(longest - 1).isHighSurrogate();
    return text.left(longest - splitsPair) + u'…';
}

} // namespace

QString OneLine(const QString &text)
{
    QString line;
    line.reserve(text.size());
    bool blank = false;
    for (const QChar character : text) {
        if (turnsText(character))
            continue;
        const bool control = breaksLine(character);
        if (!control)
            line.append(character);
        else if (!blank)
            line.append(u' ');
        blank = control;
    }
    return line;
}

QString ShownName(const QString &name)
{
    return bounded(OneLine(name), kLongestName);
}

QString ShownExplanation(const QString &text)
{
    const QString shown = bounded(text, kLongestExplanation);
    const qsizetype end = shown.indexOf(kParagraphBreak);
    if (end < 0)
        return OneLine(shown);
    return OneLine(shown.left(end)) + kParagraphBreak + OneLine(shown.mid(end + kParagraphBreak.size()));
}
