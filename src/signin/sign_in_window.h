// The sheet in which account, password and code are typed.
#pragma once

#include "signin/secret_field.h"

#include <QDialog>

#include <functional>

/// Tells what happens to the window; its owner decides. Main thread only.
class SignInWindow : public QDialog
{
    Q_OBJECT

public:
    explicit SignInWindow(QWidget *parent);

    /// Escape, or the window manager's way of closing a window. Leaves it open.
    void reject() override;

Q_SIGNALS:
    void dismissed();
    /// It has become the window in use, or another one has.
    void activeChanged(bool active);

protected:
    bool event(QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void fit();
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
