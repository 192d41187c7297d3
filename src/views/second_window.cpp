#include "views/second_window.h"

#include "views/view_factories.h"

#include <QAccessibleWidget>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QList<QPushButton *> buttonsOf(const QWidget *window)
{
    QList<QPushButton *> buttons = window->findChildren<QPushButton *>();
    buttons.removeIf([](const QPushButton *button) { return button->isHidden() || !button->isEnabled(); });
    return buttons;
}

/// Qt describes a plain widget to screen readers as a mere container, also where it is a window.
class SecondWindow : public QWidget
{
    Q_OBJECT

public:
    using QWidget::QWidget;
};

QAccessibleInterface *describeAsWindow(const QString &className, QObject *object)
{
    return className == "SecondWindow"_L1
               ? new QAccessibleWidget(static_cast<SecondWindow *>(object), QAccessible::Window)
               : nullptr;
}

} // namespace

QWidget *MakeSecondWindow(QWidget *owner, const QString &title, QSize size)
{
    QAccessible::installFactory(describeAsWindow); // once, however often it is asked for
    auto *window = new SecondWindow(owner, Qt::Window);
    window->setWindowTitle(title);
    const QSize wanted(Scaled(size.width()), Scaled(size.height()));
    window->resize(wanted.boundedTo(owner->screen()->availableSize()));
    QList<QKeySequence> keys = QKeySequence::keyBindings(QKeySequence::Close);
    keys.append(Qt::Key_Escape);
    for (const QKeySequence &key : keys)
        QObject::connect(new QShortcut(key, window), &QShortcut::activated, window, &QWidget::close);
    return window;
}

void PresentWindow(QWidget *window)
{
    QRect frame = window->frameGeometry();
    frame.moveCenter(window->screen()->availableGeometry().center());
    window->move(frame.topLeft());
    window->show();
    window->raise();
    window->activateWindow();
}

int FocusedButton(const QWidget *window)
{
    const QList<QPushButton *> buttons = buttonsOf(window);
    const auto found = std::find_if(buttons.begin(), buttons.end(), [](const QPushButton *button) {
        return button == button->window()->focusWidget();
    });
    return found == buttons.end() ? -1 : static_cast<int>(found - buttons.begin());
}

void FocusButton(QWidget *window, int index)
{
    const QList<QPushButton *> buttons = buttonsOf(window);
    if (index >= 0 && !buttons.isEmpty())
        buttons[std::min<qsizetype>(index, buttons.size() - 1)]->setFocus();
}

#include "second_window.moc"
