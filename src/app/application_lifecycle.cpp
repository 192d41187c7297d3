#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "signin/sign_in_session.h"

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

void ZarvoApp::applicationDidFinishLaunching()
{
    buildWindow();
    updateControls();

    deviceTimer = new QTimer(this);
    connect(deviceTimer, &QTimer::timeout, this, [this] { pollDevice(false); });
    deviceTimer->start(kPollPeriod);

    quietNextJob = true;
    checkAccount();
    pollDevice(false); // dropped while the check runs; its end polls again
}

void ZarvoApp::applicationWillTerminate()
{
    if (deviceTimer)
        deviceTimer->stop();
    m_terminating = true;
    cancelled = true;
    activeTask.terminate();
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
    if (!file.isEmpty())
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(file).absolutePath()));
}
