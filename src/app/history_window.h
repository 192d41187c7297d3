// The window of the phones that were chosen before. Main thread only.
#pragma once

#include "device/device_records.h"

#include <QList>
#include <QStringList>
#include <QWidget>

class QVBoxLayout;

/// Shows the history with what may be done about it, and tells what the user wants.
class HistoryWindow : public QObject
{
    Q_OBJECT

public:
    /// The window is hidden at first, and owned by `owner` like this object.
    explicit HistoryWindow(QWidget *owner);

    /// Shows these entries, as connected where they are among `phones`; what is shown already is left alone,
    /// so that the focus stays where it is. `busy`: nothing can be forgotten now.
    void showEntries(const QList<PhoneEntry> &entries, const QList<PhoneEntry> &phones, bool busy);
    /// Comes to the front.
    void present();

Q_SIGNALS:
    void forgetWanted(const QString &id);
    void clearWanted();

private:
    QWidget *makeRow(const PhoneEntry &entry, bool connected, bool busy);

    QWidget *m_window;
    QVBoxLayout *m_stack;
    QStringList m_shown; // what the rows tell
};
