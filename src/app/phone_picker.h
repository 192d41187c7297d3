// The list of phones.
#pragma once

#include "device/device_records.h"

#include <QComboBox>
#include <QList>

/// Changing the phone drops the list of apps and what was typed, so that nothing but a choice in the unfolded
/// list changes it: the wheel scrolls the page, and keys on the folded list unfold it. A title that is too
/// long is cut with "…", and a tooltip has the whole. Main thread only.
class PhonePicker : public QComboBox
{
    Q_OBJECT

public:
    explicit PhonePicker(QWidget *parent = nullptr);

    /// The request to choose one, then each phone by its title, with its identifier as data. Folds the list.
    void setPhones(const QList<PhoneEntry> &phones);

protected:
    void initStyleOption(QStyleOptionComboBox *option) const override;
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
};
