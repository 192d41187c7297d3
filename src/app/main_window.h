// The one main window. Main thread only.
#pragma once

#include "app/control_state.h"
#include "device/device_records.h"

#include <QList>
#include <QMainWindow>
#include <QString>

#include <utility>

class AppsTable;
class AppsTableModel;
class PhonePicker;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;
class Spinner;

/// Owns the views and lays them out, shows what it is told, and tells what the user wants: a signal for each
/// intent, and none for what the program itself changes. It decides nothing.
///
/// Files: it takes one IPA at a time, while its drops are enabled; whatever else is dragged over it is
/// refused.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// `logo` is the file of the picture in the header; the program's icon stands in for a missing one.
    explicit MainWindow(const QString &logo);

    /// Comes to the front in the middle of the screen, with the focus on the list of phones.
    void present();

    // Texts that come from outside are shown in bounds, without what would turn or break them.
    void showStatus(const QString &text);
    void showTransfer(const QString &text);
    void showAccount(const QString &text);
    void showOwner(const QString &text);
    void showIPA(const QString &name);
    /// What stands in place of the rows; nothing when empty.
    void showTableNote(const QString &text);
    /// Rebuilds the list of phones; none is picked then.
    void showPhones(const QList<PhoneEntry> &phones);
    /// Picks the phone `id`, or the request to choose one.
    void showPickedPhone(const QString &id);
    void showSearch(const QString &text);
    void showStoreID(const QString &text);
    /// Chooses that row of the table; none for -1.
    void showChosenApp(int row);
    /// Enables and disables. The focus waits at a harmless place while its control is disabled.
    void showControls(const WindowState &state);

    AppsTableModel *apps() const;
    QString searchText() const;
    QString typedStoreID() const;
    QString phoneTitle() const; ///< as the list shows the picked one
    bool isExactVersionWanted() const;

Q_SIGNALS:
    void closed();
    void ipaDropped(const QString &file);
    void phonePicked(const QString &id);     ///< empty: the request to choose one
    void searchChanged(const QString &text); ///< by whomever: a tool of the desktop may write into the field
    void appChosen(int row);                 ///< -1 for none
    void informationWanted();
    void refreshWanted();
    void historyWanted();
    void appsWanted();
    void loginWanted();
    void accountCheckWanted();
    void downloadWanted();
    void batchWanted();
    void installWanted();
    void ipaChooserWanted();
    void revealWanted();
    void cancelWanted();
    void instructionsWanted();

protected:
    void closeEvent(QCloseEvent *event) override;
    // Dragged files (app/dropped_files.cpp)
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    using Intent = void (MainWindow::*)();

    void build(const QString &logo);
    void buildContent(QVBoxLayout *stack, const QString &logo);
    void buildOutcome(QVBoxLayout *stack);
    void addShortcuts();
    QWidget *makeDeviceRow();
    QWidget *makeTablePlace();
    QWidget *makeDownloadRow();
    QPushButton *button(const QString &title, const char *name, Control control, Intent intent);
    QLineEdit *field(const QString &placeholder, const char *name, Control control);
    QWidget *control(Control control) const;
    void parkFocus();
    void restoreFocus();

    PhonePicker *phonePicker = nullptr;
    QLineEdit *search = nullptr;
    AppsTable *table = nullptr;
    QLabel *m_tableNote = nullptr;
    QLabel *accountLabel = nullptr;
    QLabel *ownerLabel = nullptr;
    QLineEdit *storeID = nullptr;
    QCheckBox *exactVersion = nullptr;
    QLabel *ipaLabel = nullptr;
    QLabel *statusLabel = nullptr;
    QLabel *transferLabel = nullptr;
    Spinner *spinner = nullptr;
    QWidget *m_content = nullptr; // what scrolls
    QWidget *m_focusBeforeJob = nullptr;
    QList<std::pair<Control, QWidget *>> controls; // what can be disabled
};
