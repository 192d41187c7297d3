#include "views/elided_text.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QTextDocument>
#include <QToolTip>

QString WholeTextTip(const QString &text)
{
    return text.isEmpty() ? QString() : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal);
}

void ShowWholeText(const QHelpEvent &request, QWidget *widget, const QString &text)
{
    QToolTip::showText(request.globalPos(), WholeTextTip(text), widget);
}

bool ElidingDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view,
                                const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (event->type() != QEvent::ToolTip)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const bool isCut = sizeHint(option, index).width() > view->visualRect(index).width();
    ShowWholeText(*event, view->viewport(), isCut ? index.data().toString() : QString());
    return true;
}
