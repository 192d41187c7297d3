// The one controller of the program and the owner of the window's state.
#pragma once

#include "app/background.h"
#include "app/control_state.h"
#include "core/child_process.h"
#include "core/error.h"
#include "core/tool_runner.h"
#include "device/device_records.h"
#include "device/history_writer.h"
#include "device/installed_apps.h"
#include "store/known_secrets.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class AppsTableModel;
class LegacyAuth;
class MainWindow;
class QCheckBox;
class QComboBox;
class QFileDialog;
class QLabel;
class QLineEdit;
class QMenuBar;
class QPushButton;
class QTableView;
class QTimer;
class QVBoxLayout;
class Spinner;

/// The work of a job: runs on a thread of its own, reports through setStatus and setTransfer, looks at
/// `cancelled` between its steps, and returns whether it succeeded.
using JobWork = std::function<bool(Error *error)>;

/// The child that the running job waits for, if any. Set by the worker, read by the main thread.
class ActiveTask
{
public:
    void set(std::shared_ptr<ChildProcess> task);
    /// Asks the child to end, if there is one.
    void terminate() const;

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<ChildProcess> m_task;
};

/// While one lives, the window's own changes to its controls are not taken for the user's.
class Muted
{
public:
    explicit Muted(int &depth)
        : m_depth(++depth)
    {
    }
    ~Muted() { --m_depth; }
    Muted(const Muted &) = delete;
    Muted &operator=(const Muted &) = delete;

private:
    int &m_depth;
};

/// Each method stands in the file of the capability it belongs to. Main thread only, but for those marked
/// "worker", which block and run on a job's thread, and for setStatus and setTransfer.
class ZarvoApp : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ZarvoApp)

public:
    /// `resourcePath` is the folder that holds Tools/, the logo and the help page.
    explicit ZarvoApp(const QString &resourcePath);
    /// Ends running work and waits for it.
    ~ZarvoApp() override;

    // Life cycle (app/application_lifecycle.cpp)
    /// Builds and shows the window, starts the polls and the first check of the account.
    void applicationDidFinishLaunching();
    /// Stops polls and work. Does not wait.
    void applicationWillTerminate();
    /// Waits until no work runs, at most `limit`; true when none does.
    bool waitForWorkers(std::chrono::milliseconds limit);

    // Installing (device/install_to_device.cpp)
    /// Chooses the file for installing; when it is no existing .ipa file, only says so. Once the window
    /// stands.
    void setIPA(const QString &file);

private:
    // Life cycle
    void instructions();
    void reveal();
    void notifyUnlessWatched(const QString &text);

    // Main window (app/main_window.cpp)
    void buildWindow();
    void buildMenu(QMenuBar *bar);
    void buildContent(QVBoxLayout *stack);
    void buildOutcome(QVBoxLayout *stack);
    void addShortcuts();
    QWidget *makeHeader();
    QWidget *makeDeviceRow();
    QWidget *makeAppsTable();
    QWidget *makeAccountRow();
    QWidget *makeDownloadRow();
    QWidget *makeInstallRow();
    QWidget *makeBottomRow();
    template <typename Action>
    QPushButton *button(const QString &title, const char *name, Action action);
    QLineEdit *field(const QString &placeholder, const char *name);
    void setFieldText(QLineEdit *field, const QString &text);

    // Choosers (app/file_choosers.cpp)
    using Chosen = std::function<void(const QString &path)>;
    /// Asks for a folder; calls `chosen` if one is chosen, after the chooser has gone. Dropped while a
    /// chooser or an alert is open.
    void chooseDirectory(const QString &message, const Chosen &chosen);
    void chooseIPA();
    void openChooser(QFileDialog *chooser, const Chosen &chosen);
    static bool hasSheet();
    bool isChoosing() const;

    // Control state (app/control_state.cpp)
    std::optional<AppRow> target() const;
    void updateControls();
    void parkFocus();
    void restoreFocus();

    // Jobs (app/job_runner.cpp)
    void job(const QString &text, const JobWork &work);
    void finishJob(bool result, const Error &error, bool quiet);
    void showFailure(const Error &error);
    void cancelJob();
    void setStatus(const QString &text);   // any thread
    void setTransfer(const QString &text); // any thread
    /// Queues `block` for the main thread (any thread); dropped when this object is gone by then.
    void onMain(std::function<void()> block);

    // Tools (app/zarvo_app.cpp)
    QString tool(const QString &name) const;
    std::optional<ToolResult> command(const QString &name, const QStringList &arguments, RunTimeout timeout,
                                      const std::function<void()> &tick, Error *error); // worker

    // Store (store/)
    std::optional<QString> store(const QStringList &arguments, RunTimeout timeout,
                                 const std::function<void()> &tick, Error *error); // worker
    std::optional<QString> accountWorker(Error *error);                            // worker
    void learnSecrets();
    void checkAccount();
    void login();
    void finishLogin(bool success);
    void showAccount(const QString &email);
    std::optional<QString> purchaseID(const AppRow &row, Error *error); // worker
    std::optional<QString> downloadWorker(const AppRow &row, const QString &numericID,
                                          const QString &directory, bool exact, Error *error); // worker
    bool fetch(const AppRow &row, const QString &numericID, const QString &folder, const QString &file,
               bool exact, Error *error); // worker
    void download();
    void downloadInto(const QString &folder, const AppRow &row, const QString &identifier, bool exact);
    void showDownload(const QString &email, const QString &file);
    void downloadAll();
    bool downloadEach(const QList<AppRow> &all, const QString &parent, bool exact, Error *error); // worker

    // Devices (device/)
    std::optional<DeviceReply> device(const QStringList &arguments, Error *error); // worker
    void refresh();
    void pollDevice(bool byUser);
    QString prompt() const;
    void applyDiscoveredPhones(const QList<PhoneEntry> &found, const QString &trouble);
    void showPhoneTrouble(const QString &reason);
    void updateTableNote();
    void rebuildPicker();
    void showPickedPhone(const QString &id);
    void selectPhone();
    void clearDeviceSelection();

    // Installing (device/install_to_device.cpp)
    void install();
    void installConfirmed(const QString &file, const QString &phone);
    void showInstalled(const QString &phone, const QList<AppRow> &list);

    // Details (device/device_information.cpp)
    void showInfo();
    void showDetails(const QString &text);

    // History of phones (device/device_history.cpp)
    void loadHistory();
    void persistHistory();
    void rememberDevice(const PhoneEntry &phone);
    void forgetDeviceID(const QString &id);
    void clearHistory();
    void showHistory();
    void refreshHistory();
    QStringList historyLines() const;
    QWidget *makeHistoryRow(const PhoneEntry &entry);

    // Installed apps (device/installed_apps.cpp)
    void reloadApps();
    void loadAppsAutomatic(bool automatic);
    void finishAppsRead(bool read, const Error &error);
    bool readAppsWorker(const QString &phone, Error *error); // worker
    void setApps(const QList<AppRow> &list);
    void filterRows();
    void controlTextDidChange(const QLineEdit *field);
    int numberOfRowsInTableView() const;
    void reloadTable();
    bool selectRow(const QString &id);
    void tableViewSelectionDidChange();
    void updateOwner();

    // State of the phones and their apps
    QList<PhoneEntry> phones;          // as last discovered, in the tool's order
    QList<PhoneEntry> savedPhones;     // all that were ever chosen, by name
    QString selectedPhone;             // id of the current phone
    QString loadedPhone;               // id of the phone whose apps are held
    QList<AppRow> apps;                // all of them, sorted by name
    QList<AppRow> rows;                // those that pass the search
    QList<DetailLine> details;         // of the information read with the apps
    QString m_trouble;                 // why no phone can be listed
    QString selectedApp;               // bundle identifier of the chosen row
    QDateTime lastAppAttempt;          // when the last read of the apps was started
    QList<AppSearchKeys> m_searchKeys; // of `apps`

    // State of the store and of files
    QString account;      // as last confirmed
    QString typedAccount; // in the last sign-in
    QString ipa;          // path of the IPA chosen for installing
    QString lastDownload; // path of the IPA saved last
    QString m_refusal;    // why the file given last was not taken; until something else is begun

    // State of jobs
    bool busy = false;
    bool quietNextJob = false;
    bool checkingDevice = false;
    std::atomic<bool> cancelled = false;
    std::atomic<bool> m_terminating = false;
    ActiveTask activeTask;
    KnownSecrets m_known; // grows before each job; while one runs it is the worker's
    int m_muted = 0;

    // Views, owned by the window
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<LegacyAuth> auth;       // the open sign-in, a sheet of the window
    QFileDialog *m_folderChooser = nullptr; // kept once made
    QFileDialog *m_ipaChooser = nullptr;    // kept once made
    QPointer<QWidget> infoWindow;           // the newest one; gone when closed
    QWidget *historyWindow = nullptr;       // kept once made
    QVBoxLayout *historyStack = nullptr;
    QStringList m_historyShown; // what its rows tell, to leave them alone while nothing changes
    QComboBox *phonePicker = nullptr;
    QLineEdit *search = nullptr;
    QTableView *table = nullptr;
    QLabel *accountLabel = nullptr;
    QLabel *ownerLabel = nullptr;
    QLabel *statusLabel = nullptr;
    QLabel *transferLabel = nullptr;
    QLabel *m_phoneTrouble = nullptr; // why the table is empty; over it
    QLabel *ipaLabel = nullptr;
    QLineEdit *storeID = nullptr;
    QPushButton *downloadButton = nullptr;
    QPushButton *allButton = nullptr;
    QPushButton *installButton = nullptr;
    QPushButton *infoButton = nullptr;
    QPushButton *cancelButton = nullptr;
    QCheckBox *exactVersion = nullptr;
    Spinner *spinner = nullptr;
    QList<QWidget *> controls; // disabled while a job runs
    AppsTableModel *m_tableModel = nullptr;
    QWidget *m_content = nullptr; // what scrolls
    QWidget *m_focusBeforeJob = nullptr;

    QTimer *deviceTimer = nullptr;
    QString m_resourcePath;
    std::shared_ptr<const bool> m_alive =
        std::make_shared<const bool>(true); // for blocks that are still queued
    HistoryWriter m_historyWriter;
    Background m_background; // last: its destructor waits for threads that use the rest
};
