#include "views/wrapping_label.h"

#include "views/elided_text.h"
#include "views/view_factories.h"

#include <QAbstractTextDocumentLayout>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>
#include <QTextOption>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kNarrowest = 60;

} // namespace

WrappingLabel::WrappingLabel(const QString &text, int mostLines)
    : QLabel(text)
    , m_mostLines(mostLines)
{
}

QSize WrappingLabel::sizeHint() const
{
    const QSize line = fontMetrics().size(0, text());
    return QSize(line.width() + 1, heightForWidth(line.width() + 1)).expandedTo(minimumSizeHint());
}

QSize WrappingLabel::minimumSizeHint() const
{
    return QSize(std::min(Scaled(kNarrowest), fontMetrics().horizontalAdvance(text()) + 1),
                 fontMetrics().height());
}

int WrappingLabel::heightForWidth(int width) const
{
    const auto document = laidOut(width);
    const std::optional<LastLine> last = lastLine(*document);
    return last ? last->place.bottom() + 1 : static_cast<int>(std::ceil(document->size().height()));
}

bool WrappingLabel::event(QEvent *event)
{
    if (event->type() != QEvent::ToolTip || m_mostLines == 0)
        return QLabel::event(event);
    const bool isCut = lastLine(*laidOut(width())).has_value();
    ShowWholeText(*static_cast<QHelpEvent *>(event), this, isCut ? text() : QString());
    return true;
}

// Selected text cannot be dragged away: that would be a loop of Qt's in this label, which may be removed
// meanwhile.
void WrappingLabel::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && !(event->modifiers() & Qt::ShiftModifier))
        setSelection(0, 0);
    QLabel::mousePressEvent(event);
}

void WrappingLabel::paintEvent(QPaintEvent *event)
{
    const auto document = laidOut(width());
    if (const std::optional<LastLine> last = lastLine(*document))
        paintUpTo(*last, *document);
    else
        QLabel::paintEvent(event);
    breakWords(); // paints again when the base class has laid the text out afresh
}

// The base class has such a document, too, but each look at that one's height at another width makes it paint
// again.
std::unique_ptr<QTextDocument> WrappingLabel::laidOut(int width) const
{
    auto document = std::make_unique<QTextDocument>();
    QTextOption option(alignment() & Qt::AlignHorizontal_Mask);
    option.setTextDirection(layoutDirection());
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    document->setDefaultTextOption(option);
    document->setDefaultFont(font());
    document->setDocumentMargin(0);
    document->setPlainText(text());
    document->setTextWidth(width);
    return document;
}

std::optional<WrappingLabel::LastLine> WrappingLabel::lastLine(const QTextDocument &document) const
{
    if (m_mostLines == 0)
        return std::nullopt;
    int before = 0; // lines of the paragraphs so far
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const QRectF place = document.documentLayout()->blockBoundingRect(block); // lays it out
        const int lines = block.layout()->lineCount();
        const int last = m_mostLines - 1 - before;
        before += lines;
        if (before < m_mostLines || (before == m_mostLines && !block.next().isValid()))
            continue;
        const QTextLine line = block.layout()->lineAt(last);
        const QString rest = document.toPlainText().mid(block.position() + line.textStart());
        return LastLine{line.rect().translated(place.topLeft()).toAlignedRect(), rest.simplified()};
    }
    return std::nullopt;
}

// As the base class does it, but for the last line.
void WrappingLabel::paintUpTo(const LastLine &last, QTextDocument &document)
{
    const QColor color = palette().color(foregroundRole());
    QAbstractTextDocumentLayout::PaintContext context;
    context.palette = palette();
    context.palette.setColor(QPalette::Text, color);
    if (hasSelectedText()) {
        QAbstractTextDocumentLayout::Selection selection;
        selection.cursor = QTextCursor(&document);
        selection.cursor.setPosition(selectionStart());
        selection.cursor.setPosition(selectionStart() + static_cast<int>(selectedText().size()),
                                     QTextCursor::KeepAnchor);
        selection.format.setBackground(palette().highlight());
        selection.format.setForeground(palette().highlightedText());
        context.selections.append(selection);
    }
    QPainter painter(this);
    painter.setPen(color);
    const QRect line(0, last.place.top(), width(), last.place.height());
    painter.drawText(line, static_cast<int>(alignment() & Qt::AlignHorizontal_Mask) | Qt::TextSingleLine,
                     fontMetrics().elidedText(last.rest, Qt::ElideRight, width()));
    painter.setClipRect(0, 0, width(), line.top());
    document.documentLayout()->draw(&painter, context);
}

// The label has no such mode, but the document of its selectable text has; the base class sets it back with
// each new layout.
void WrappingLabel::breakWords()
{
    auto *document = findChild<QTextDocument *>();
    if (!document)
        return;
    QTextOption option = document->defaultTextOption();
    if (option.wrapMode() == QTextOption::WrapAtWordBoundaryOrAnywhere)
        return;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    document->setDefaultTextOption(option);
}
