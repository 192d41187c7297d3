// The one main window.
#pragma once

#include <QMainWindow>

/// Tells when the user has closed it. Main thread only.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow();

Q_SIGNALS:
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;
};
