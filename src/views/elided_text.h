// Texts that are cut with "…" where there is no room for them show the whole in a tooltip. Main thread only.
#pragma once

#include <QStyledItemDelegate>

class QHelpEvent;

/// `text` as a tooltip that wraps, letter by letter: no markup.
QString WholeTextTip(const QString &text);

/// Answers a request for a tooltip over `widget`; an empty text takes a tooltip away.
void ShowWholeText(const QHelpEvent &request, QWidget *widget, const QString &text);

/// Shows the cells of a list or table as usual, and the whole text of one that is cut in a tooltip.
class ElidingDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;
};
