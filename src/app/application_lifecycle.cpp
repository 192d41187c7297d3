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

void ZarvoApp::applicationDidFinishLaunching()
{
    loadHistory();
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
    if (!cancelled && !QApplication::activeWindow())
        m_background.run([text] { ShowNotice(u"Zarvo"_s, text); });
}
