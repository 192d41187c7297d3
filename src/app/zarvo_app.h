// The one controller of the program: its state, what the user may do, and the job that runs.
#pragma once

#include "core/background.h"
#include "core/error.h"
#include "core/job.h"
#include "device/device_records.h"
#include "device/history_writer.h"
#include "device/installed_apps.h"
#include "store/known_secrets.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class HistoryWindow;
class LegacyAuth;
class MainWindow;
class QFileDialog;
class QTimer;

/// The work of a job: runs on a thread of its own with the job it belongs to, and returns whether it
/// succeeded. Holds copies of what it needs.
using JobWork = std::function<bool(Job &job, Error *error)>;

/// An action gathers what it needs, calls a plain function that decides or a worker that works, and applies
/// the answer. Main thread only, but for setStatus, setTransfer and onMain.
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

    // Installing (app/install_actions.cpp)
    /// Chooses the file for installing; when it is no existing .ipa file, only says so. Once the window
    /// stands.
    void setIPA(const QString &file);

private:
    // Life cycle
    void connectWindow();
    void instructions();
    void reveal();
    void notifyUnlessWatched(const QString &text);

    // Jobs (app/job_runner.cpp)
    void job(const QString &text, const JobWork &work);
    std::shared_ptr<Job> makeJob();
    void learnSecrets();
    void finishJob(bool result, const Error &error, bool quiet);
    void showFailure(const Error &error);
    void cancelJob();
    void setStatus(const QString &text);   // any thread
    void setTransfer(const QString &text); // any thread
    /// Queues `block` for the main thread (any thread); dropped when this object is gone by then.
    void onMain(std::function<void()> block);
    void updateControls();

    // Choosers (app/file_choosers.cpp)
    using Chosen = std::function<void(const QString &path)>;
    /// Asks for a folder; calls `chosen` if one is chosen, after the chooser has gone. Dropped while a
    /// chooser or an alert is open.
    void chooseDirectory(const QString &message, const Chosen &chosen);
    void chooseIPA();
    void openChooser(QFileDialog *chooser, const Chosen &chosen);
    static bool hasSheet();
    bool isChoosing() const;

    // Account (app/account_actions.cpp)
    void checkAccount();
    void showAccount(const QString &email);
    void login();
    void finishLogin(bool success);

    // Downloading (app/download_actions.cpp)
    void download();
    void downloadInto(const QString &folder, const AppRow &row, const QString &identifier, bool exact);
    void showDownload(const QString &email, const QString &file);
    void downloadAll();

    // Phones (app/phone_actions.cpp)
    QString prompt() const;
    void refresh();
    void pollDevice(bool byUser);
    void applyDiscoveredPhones(const QList<PhoneEntry> &found, const QString &trouble);
    void showPhoneTrouble(const QString &reason);
    void selectPhone(const QString &id);
    void clearDeviceSelection();
    void showInfo();
    void showDetails(const QString &text);

    // Installed apps (app/apps_actions.cpp)
    void reloadApps();
    void loadAppsAutomatic(bool automatic);
    void finishAppsRead(bool read, const Error &error);
    void showApps(const QString &phone, const InstalledApps &installed);
    void setApps(const SearchableApps &apps);
    void filterRows();
    void showRows();
    void tableViewSelectionDidChange(int row);
    std::optional<AppRow> target() const;
    void updateOwner();
    void updateTableNote();

    // Installing (app/install_actions.cpp)
    void install();
    void installConfirmed(const QString &file, const QString &phone);
    void showInstalled(const QString &phone, const QList<AppRow> &list);

    // History of phones (app/history_actions.cpp)
    void loadHistory();
    void persistHistory();
    void rememberDevice(const PhoneEntry &phone);
    void forgetDeviceID(const QString &id);
    void clearHistory();
    void showHistory();
    void refreshHistory();

    // State of the phones and their apps; the apps themselves are the table's
    QList<PhoneEntry> phones;      // as last discovered, in the tool's order
    QList<PhoneEntry> savedPhones; // all that were ever chosen, by name
    QString selectedPhone;         // id of the current phone
    QString loadedPhone;           // id of the phone whose apps are held
    QList<DetailLine> details;     // of the information read with the apps
    QString selectedApp;           // bundle identifier of the chosen row
    QDateTime lastAppAttempt;      // when the last read of the apps was started
    QString m_trouble;             // why no phone, or none of its apps, can be listed

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
    std::shared_ptr<Job> m_job;  // the one that runs, or ran last
    std::shared_ptr<Job> m_poll; // the same of the polls
    // What the program has met of the user's secrets: grows before each job; while one runs it is the
    // worker's.
    std::shared_ptr<KnownSecrets> m_known = std::make_shared<KnownSecrets>();

    // Views
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<LegacyAuth> auth;       // the open sign-in, a sheet of the window
    QFileDialog *m_folderChooser = nullptr; // of the window; kept once made
    QFileDialog *m_ipaChooser = nullptr;    // of the window; kept once made
    QPointer<QWidget> infoWindow;           // the newest one; gone when closed
    HistoryWindow *historyWindow = nullptr; // of the window; kept once made

    QTimer *deviceTimer = nullptr;
    QString m_resourcePath;
    std::shared_ptr<const bool> m_alive =
        std::make_shared<const bool>(true); // for blocks that are still queued
    HistoryWriter m_historyWriter;
    Background m_background; // last: its destructor waits for threads that use the rest
};
