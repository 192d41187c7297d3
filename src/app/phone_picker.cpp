#include "app/phone_picker.h"

#include <QAbstractItemView>
#include <QKeyEvent>
#include <QWheelEvent>

namespace {

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
