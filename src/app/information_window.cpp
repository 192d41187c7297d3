#include "app/information_window.h"

#include "views/second_window.h"
#include "views/view_factories.h"

#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kInformationSize{680, 620};
constexpr double kTextSize = 14;
constexpr int kInset = 18;

// Text that cannot be dragged away: that would be a loop of Qt's in a view that goes with its window.
class DetailsView : public QPlainTextEdit
{
public:
    using QPlainTextEdit::QPlainTextEdit;

protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        if (event->button() == Qt::LeftButton && !(event->modifiers() & Qt::ShiftModifier)) {
            QTextCursor cursor = textCursor();
            cursor.clearSelection();
            setTextCursor(cursor);
        }
        QPlainTextEdit::mousePressEvent(event);
    }
};

} // namespace

QWidget *OpenInformationWindow(QWidget *owner, const QString &text)
{
    auto *view = new DetailsView(text);
    view->setObjectName(u"detailsText"_s);
    view->setAccessibleName(u"Сведения об iPhone"_s);
    view->setReadOnly(true);
    view->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    view->setTabChangesFocus(true);
    view->setFrameShape(QFrame::NoFrame);
    view->document()->setDocumentMargin(Scaled(kInset));
    view->setFont(FontOfSize(kTextSize));

    QWidget *shown = MakeSecondWindow(owner, u"Сведения об iPhone"_s, kInformationSize);
    shown->setObjectName(u"infoWindow"_s);
    shown->setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(shown);
    layout->setContentsMargins({});
    layout->addWidget(view);
    PresentWindow(shown);
    return shown;
}
