#include "device/device_information.h"

#include "app/main_window.h"
#include "app/second_window.h"
#include "app/shown_text.h"
#include "app/view_factories.h"
#include "app/zarvo_app.h"

#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kInformationSize{680, 620};
constexpr double kTextSize = 14;
constexpr int kInset = 18;

// Text that cannot be dragged away: that would be a loop of the toolkit's in a view that goes with its
// window.
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

QString DetailsText(const QList<DetailLine> &details)
{
    QString text;
    for (const DetailLine &line : details)
        text += ShownName(line.label) + u'\n' + ShownName(line.value) + u"\n\n"_s;
    return text;
}

void ZarvoApp::showInfo()
{
    if (selectedPhone.isEmpty())
        return;
    job(u"Чтение сведений об iPhone…"_s, [this, phone = selectedPhone](Error *error) {
        const auto info = device({u"info"_s, phone}, error);
        if (!info)
            return false;
        const auto battery = device({u"battery"_s, phone}, nullptr);
        const QString text = DetailsText(info->details + (battery ? battery->details : QList<DetailLine>()));
        onMain([this, text] { showDetails(text); });
        return true;
    });
}

void ZarvoApp::showDetails(const QString &text)
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

    QWidget *shown = MakeSecondWindow(window.get(), u"Сведения об iPhone"_s, kInformationSize);
    shown->setObjectName(u"infoWindow"_s);
    shown->setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(shown);
    layout->setContentsMargins({});
    layout->addWidget(view);
    infoWindow = shown;
    PresentWindow(shown);
    setStatus(u"Сведения обновлены. Недоступные показатели отмечены явно."_s);
}
