#include "views/window_fitting.h"

#include "views/view_factories.h"

#include <QLayout>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenuBar>
#include <QScreen>
#include <QStyle>
#include <QStyleOptionFrame>

#include <algorithm>

using namespace Qt::StringLiterals;

void FitWindow(QMainWindow *window, QSize usual, const QWidget *content, const QLayout *below, int growth)
{
    const int width = std::max(Scaled(usual.width()), content->sizeHint().width());
    const int needed = window->menuBar()->sizeHint().height() + content->heightForWidth(width) +
                       below->totalHeightForWidth(width) + growth;
    QRect screen = window->screen()->availableGeometry();
    screen.setTop(screen.top() + window->style()->pixelMetric(QStyle::PM_TitleBarHeight));
    const QSize wanted(width, std::max(Scaled(usual.height()), needed));
    window->resize(wanted.boundedTo(screen.size()).expandedTo(window->minimumSize()));
    window->move(screen.center() - window->rect().center());
}

int WidthOfPlaceholder(const QLineEdit *field)
{
    QStyleOptionFrame frame;
    frame.initFrom(field);
    frame.lineWidth = field->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &frame, field);
    // The field itself leaves a margin within the style's frame: two blanks are ample.
    const QSize text = field->fontMetrics().size(0, field->placeholderText() + u"  "_s);
    return field->style()->sizeFromContents(QStyle::CT_LineEdit, &frame, text, field).width();
}
