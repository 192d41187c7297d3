// The one main window.
#pragma once

#include <QMainWindow>

/// Tells when the user has closed it and when an IPA has been dropped on it. Takes one IPA file at a time,
/// while acceptDrops() holds; whatever else is dragged over it is refused. Main thread only.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow();

Q_SIGNALS:
    void closed();
    void dropped(const QString &file);

protected:
    void closeEvent(QCloseEvent *event) override;
    // Dragged files (app/dropped_files.cpp)
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
};
