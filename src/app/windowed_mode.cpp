#include "app/windowed_mode.h"

#include "app/resources.h"
#include "app/zarvo_app.h"
#include "core/child_process.h"
#include "core/end_signals.h"
#include "core/main_thread.h"
#include "core/private_folder.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QSettings>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

// Quitting does not wait for work: children are asked to end, then ended, and whoever has not come back by
// then is left behind. Together with the removal of private folders this stays below half a second.
constexpr auto kForChildren = 150ms;
constexpr auto kForWorkers = 150ms;
// Takes some milliseconds. What has just come in, half a gigabyte of it, keeps a busy disk for over a second:
// left to itself it would stay for good. A file system that is dead never answers.
constexpr auto kForRemoval = 3s;
// For a main thread that cannot be reached when a signal asks to end: it hangs in a call of the system.
constexpr auto kForMainThread = 400ms;

void cleanUp()
{
    ChildProcess::leave();
    ChildProcess::killAll();
    PrivateFolder::removeAll(kForRemoval);
}

[[noreturn]] void endNow()
{
    cleanUp();
    std::fflush(nullptr);
    std::_Exit(0);
}

// What Qt says while it looks for a display.
QByteArray startMessages;

// Qt aborts when it finds no display: the user gets a sentence, and then Qt's own reasons.
void explainMissingDisplay(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    static std::mutex mutex; // Qt's own threads speak, too
    const std::lock_guard lock(mutex);
    startMessages += qFormatLogMessage(type, context, message).toUtf8() + '\n';
    if (type != QtFatalMsg)
        return;
    std::fprintf(stderr,
                 "Zarvo: нет доступного графического экрана. Запустите программу в графическом сеансе.\n%s",
                 startMessages.constData());
    std::_Exit(1);
}

void quitWhenAsked(int)
{
    ZarvoMain([] { QCoreApplication::exit(0); });
    std::this_thread::sleep_for(kForMainThread);
    endNow();
}

} // namespace

int RunWindow(int &argc, char **argv, const WindowedOptions &options)
{
    // Qt's choosers would keep sizes and folders in a file that all its programs share: written on
    // the main thread, and as long as any program holds the file's lock, the window would stand still. Where
    // no file can be made they keep nothing, and wait for nobody.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, u"/dev/null"_s);
    const QtMessageHandler usual = qInstallMessageHandler(explainMissingDisplay);
    QApplication application(argc, argv);
    qInstallMessageHandler(usual);
    std::fputs(startMessages.constData(), stderr);
    QApplication::setOrganizationName(u"Zarvo"_s);
    QApplication::setApplicationName(u"Zarvo"_s);
    QApplication::setDesktopFileName(u"zarvo"_s); // under Wayland the icon comes from the desktop entry
    const QString resources = options.resources.isEmpty() ? ResourcePath() : options.resources;
    QApplication::setWindowIcon(QIcon(u":/AppLogo.png"_s));
    InstallRussianTexts();

    std::atexit(cleanUp); // Qt leaves by exit() when the display goes away
    OnEndSignals(quitWhenAsked);
    ZarvoApp controller(resources);
    controller.applicationDidFinishLaunching();
    const QStringList arguments = QApplication::arguments().mid(1); // less those that Qt takes
    const QString file = arguments.size() == 1 ? arguments.first() : QString();
    if (!file.isEmpty() && (!file.startsWith(u'-') || QFileInfo::exists(file))) // no misspelt option
        controller.setIPA(file);
    if (options.launched)
        options.launched();
    QApplication::exec();
    ChildProcess::leave(); // before anybody is asked to end
    controller.applicationWillTerminate();
    ChildProcess::terminateAll(); // also what the job waits for, but cannot cancel
    ChildProcess::waitForAll(kForChildren);
    ChildProcess::killAll();
    if (!controller.waitForWorkers(kForWorkers))
        endNow();
    return 0;
}
