#include "app/phone_picker.h"

#include "app/elided_text.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QWheelEvent>

namespace {

constexpr int kTextMargins = 4; // that styles leave beside the text

bool moves(int key)
{
    switch (key) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
        return true;
    default:
        return false;
    }
}

} // namespace

PhonePicker::PhonePicker(QWidget *parent)
    : QComboBox(parent)
{
    setFocusPolicy(Qt::StrongFocus);
}

void PhonePicker::initStyleOption(QStyleOptionComboBox *option) const
{
    QComboBox::initStyleOption(option);
    const QRect room =
        style()->subControlRect(QStyle::CC_ComboBox, option, QStyle::SC_ComboBoxEditField, this);
    option->currentText =
        fontMetrics().elidedText(currentText(), Qt::ElideRight, room.width() - kTextMargins);
}

bool PhonePicker::event(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QComboBox::event(event);
    QStyleOptionComboBox shown;
    initStyleOption(&shown);
    const bool isCut = shown.currentText != currentText();
    ShowWholeText(*static_cast<QHelpEvent *>(event), this, isCut ? currentText() : QString());
    return true;
}

void PhonePicker::keyPressEvent(QKeyEvent *event)
{
    const QString text = event->text();
    const bool typed = !text.isEmpty() && text.at(0).isPrint() && event->key() != Qt::Key_Space;
    if (typed && event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) {
        event->ignore();
    } else if (typed || moves(event->key())) {
        showPopup();
        if (typed)
            view()->keyboardSearch(text);
    } else {
        QComboBox::keyPressEvent(event);
    }
}

void PhonePicker::wheelEvent(QWheelEvent *event)
{
    event->ignore();
}
