// The sheet in which account, password and code are typed.
#pragma once

#include "signin/secret_field.h"

#include <QDialog>

#include <functional>

class QScrollArea;

/// Tells what happens to the window; its owner decides. Main thread only.
class SignInWindow : public QDialog
{
    Q_OBJECT

public:
    /// `page` becomes the content, as wide as the window; it can be scrolled where the screen is too small.
    SignInWindow(QWidget *parent, QWidget *page);

    /// Gives a control of the page the focus, and the user the sight of it.
    void focus(QWidget *control);

    /// Escape, or the window manager's way of closing a window. Leaves it open.
    void reject() override;

Q_SIGNALS:
    void dismissed();
    /// It has become the window in use, or another one has.
    void activeChanged(bool active);

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void fit();

    QScrollArea *m_room;
};

/// A field that says when its typing begins and ends. A change of windows does not end it.
class ZarvoSecurePasswordField : public SecretField
{
    Q_OBJECT

public:
    using SecretField::SecretField;

    /// Called when the field gets the focus, before anything can be typed.
    std::function<void()> focusAction;

Q_SIGNALS:
    void editingEnded();

protected:
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
};
