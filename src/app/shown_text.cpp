#include "app/shown_text.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestShown = 2000;
const QString kParagraphBreak = u"\n\n"_s;

bool isControl(QChar character)
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

} // namespace

QString OneLine(const QString &text)
{
    QString line;
    line.reserve(text.size());
    bool blank = false;
    for (const QChar character : text) {
        const bool control = isControl(character);
        if (!control)
            line.append(character);
        else if (!blank)
            line.append(u' ');
        blank = control;
    }
    return line;
}

QString ShownExplanation(const QString &text)
{
    QString shown = text.left(kLongestShown);
    if (shown.size() < text.size() && shown.back().isHighSurrogate())
        shown.chop(1);
    if (shown.size() < text.size())
        shown.append(u'…');
    const qsizetype end = shown.indexOf(kParagraphBreak);
    if (end < 0)
        return OneLine(shown);
    return OneLine(shown.left(end)) + kParagraphBreak + OneLine(shown.mid(end + kParagraphBreak.size()));
}
