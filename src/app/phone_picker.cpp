#include "app/phone_picker.h"

#include "device/device_discovery.h"
#include "views/elided_text.h"
#include "views/view_factories.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QWheelEvent>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLeastWidth = 220;
constexpr int kMostWidth = 300; // beside its buttons
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
    setObjectName(u"phonePicker"_s);
    setAccessibleDescription(u"Выберите iPhone"_s);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumWidth(Scaled(kLeastWidth));
    setMaximumWidth(Scaled(kMostWidth));
    setSizeAdjustPolicy(QComboBox::AdjustToContents);
    setPhones({});
}

void PhonePicker::setPhones(const QList<PhoneEntry> &phones)
{
    hidePopup(); // else the lines would move under the user's pointer
    clear();
    addItem(u"Выберите iPhone"_s);
    for (const PhoneEntry &phone : phones) {
        addItem(PhoneTitle(phone), phone.id);
        setItemData(count() - 1, WholeTextTip(PhoneTitle(phone)), Qt::ToolTipRole);
    }
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
