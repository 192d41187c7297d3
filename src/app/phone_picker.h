// The list of phones.
#pragma once

#include <QComboBox>

/// Changing the phone drops the list of apps and what was typed, so that nothing but a choice in the unfolded
/// list changes it: the wheel scrolls the page, and keys on the folded list unfold it. Main thread only.
class PhonePicker : public QComboBox
{
    Q_OBJECT

public:
    explicit PhonePicker(QWidget *parent = nullptr);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
};
