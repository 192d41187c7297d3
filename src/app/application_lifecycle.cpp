#include "app/desktop_services.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "signin/sign_in_session.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

#include <chrono>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kPollPeriod = 6s;

} // namespace

ZarvoApp::ZarvoApp(const QString &resourcePath)
    : m_resourcePath(resourcePath)
{
}

ZarvoApp::~ZarvoApp()
{
    applicationWillTerminate();
}

void ZarvoApp::applicationDidFinishLaunching()
{
    loadHistory();
    window = std::make_unique<MainWindow>(m_resourcePath + u"/AppLogo.png"_s);
    connectWindow();
    window->present();
    updateControls();

    deviceTimer = new QTimer(this);
    connect(deviceTimer, &QTimer::timeout, this, [this] { pollDevice(false); });
    deviceTimer->start(kPollPeriod);

    quietNextJob = true;
    checkAccount();
    pollDevice(false); // dropped while the check runs; its end polls again
}

void ZarvoApp::connectWindow()
{
    MainWindow *w = window.get();
    connect(w, &MainWindow::closed, qApp, &QCoreApplication::quit);
    connect(w, &MainWindow::phonePicked, this, &ZarvoApp::selectPhone);
    connect(w, &MainWindow::searchChanged, this, &ZarvoApp::filterRows);
    connect(w, &MainWindow::appChosen, this, &ZarvoApp::tableViewSelectionDidChange);
    connect(w, &MainWindow::informationWanted, this, &ZarvoApp::showInfo);
    connect(w, &MainWindow::refreshWanted, this, &ZarvoApp::refresh);
    connect(w, &MainWindow::historyWanted, this, &ZarvoApp::showHistory);
    connect(w, &MainWindow::appsWanted, this, &ZarvoApp::reloadApps);
    connect(w, &MainWindow::loginWanted, this, &ZarvoApp::login);
    connect(w, &MainWindow::accountCheckWanted, this, &ZarvoApp::checkAccount);
    connect(w, &MainWindow::downloadWanted, this, &ZarvoApp::download);
    connect(w, &MainWindow::batchWanted, this, &ZarvoApp::downloadAll);
    connect(w, &MainWindow::installWanted, this, &ZarvoApp::install);
    connect(w, &MainWindow::ipaChooserWanted, this, &ZarvoApp::chooseIPA);
    connect(w, &MainWindow::ipaDropped, this, &ZarvoApp::setIPA);
    connect(w, &MainWindow::revealWanted, this, &ZarvoApp::reveal);
    connect(w, &MainWindow::cancelWanted, this, &ZarvoApp::cancelJob);
    connect(w, &MainWindow::instructionsWanted, this, &ZarvoApp::instructions);
}

void ZarvoApp::applicationWillTerminate()
{
    if (deviceTimer)
        deviceTimer->stop();
    for (const auto &job : {m_job, m_poll}) {
        if (job)
            job->cancel();
    }
    auth.reset();
}

bool ZarvoApp::waitForWorkers(std::chrono::milliseconds limit)
{
    return m_background.waitForDone(limit);
}

void ZarvoApp::instructions()
{
    const QString page = m_resourcePath + u"/README.html"_s;
    if (QFileInfo::exists(page))
        QDesktopServices::openUrl(QUrl::fromLocalFile(page));
}

void ZarvoApp::reveal()
{
    const QString file = lastDownload.isEmpty() ? ipa : lastDownload;
    if (file.isEmpty())
        return;
    const QString path = QFileInfo(file).absoluteFilePath();
    m_background.run([this, path] {
        if (!ShowInFileManager(path))
            onMain([path] { QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).path())); });
    });
}

void ZarvoApp::notifyUnlessWatched(const QString &text)
{
    if (!m_job->isCancelled() && !QApplication::activeWindow())
        m_background.run([text] { ShowNotice(u"Zarvo"_s, text); });
}
