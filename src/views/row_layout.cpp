#include "views/row_layout.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int kLeastShare = 3; // a third of the row

QSize sizeIn(int available, const QLayoutItem *item)
{
    const int width = std::min(item->sizeHint().width(), std::max(available, item->minimumSize().width()));
    return {width, item->hasHeightForWidth() ? item->heightForWidth(width) : item->sizeHint().height()};
}

} // namespace

RowLayout::RowLayout(QWidget *parent, int spacing)
    : QLayout(parent)
{
    setSpacing(spacing);
    setContentsMargins(0, 0, 0, 0);
}

RowLayout::~RowLayout()
{
    qDeleteAll(m_items);
}

void RowLayout::addItem(QLayoutItem *item)
{
    m_items.append(item);
}

int RowLayout::count() const
{
    return static_cast<int>(m_items.size());
}

QLayoutItem *RowLayout::itemAt(int index) const
{
    return m_items.value(index);
}

QLayoutItem *RowLayout::takeAt(int index)
{
    return index >= 0 && index < count() ? m_items.takeAt(index) : nullptr;
}

int RowLayout::heightForWidth(int width) const
{
    return layOut(QRect(0, 0, width, 0), false);
}

QSize RowLayout::sizeHint() const
{
    QSize size;
    for (const QLayoutItem *item : m_items) {
        if (item->isEmpty())
            continue;
        const QSize hint = item->sizeHint();
        size = {size.width() + (size.width() > 0 ? spacing() : 0) + hint.width(),
                std::max(size.height(), hint.height())};
    }
    return size;
}

QSize RowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem *item : m_items) {
        if (!item->isEmpty())
            size = size.expandedTo(item->minimumSize());
    }
    return size;
}

void RowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    layOut(rect, true);
}

// What the items from this one on take in one line, with the spacing before each.
int RowLayout::widthFrom(qsizetype index) const
{
    int width = 0;
    for (; index < m_items.size(); ++index)
        width += m_items[index]->isEmpty() ? 0 : spacing() + m_items[index]->sizeHint().width();
    return width;
}

// Returns the height that the lines take.
int RowLayout::layOut(const QRect &rect, bool apply) const
{
    QList<std::pair<QLayoutItem *, QRect>> line;
    int lineHeight = 0;
    int x = 0;
    int y = 0;
    const auto closeLine = [&] {
        for (const auto &[item, box] : std::as_const(line)) {
            if (apply)
                item->setGeometry(box.translated(rect.x(), rect.y() + y + (lineHeight - box.height()) / 2));
        }
        y += lineHeight;
        line.clear();
        lineHeight = 0;
        x = 0;
    };
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        QLayoutItem *item = m_items[i];
        if (item->isEmpty())
            continue;
        // What can be narrower gives way to what follows it, where enough is left for it.
        const int beside = rect.width() - x - widthFrom(i + 1);
        const QSize size = sizeIn(beside > rect.width() / kLeastShare ? beside : rect.width(), item);
        if (!line.isEmpty() && x + size.width() > rect.width()) {
            closeLine();
            y += spacing();
        }
        line.append({item, QRect(QPoint(x, 0), size)});
        lineHeight = std::max(lineHeight, size.height());
        x += size.width() + spacing();
    }
    closeLine();
    return y;
}
