#include "app/resources.h"
#include "app/zarvo_app.h"
#include "core/child_process.h"
#include "core/private_folder.h"
#include "core/self_test.h"
#include "ipa/ipa_validation.h"

#include <QApplication>
#include <QIcon>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

// Quitting does not wait for work: children are ended, and whoever has not come back by then is left behind.
constexpr auto kPatience = 300ms;

int verify(const char *file, const char *bundleID)
{
    Error error;
    const auto info = ZarvoValidateIPA(file, QString::fromUtf8(bundleID), &error);
    if (!info) {
        std::fprintf(stderr, "%s\n", error.message.toUtf8().constData());
        return 1;
    }
    std::printf("Verified %s, version %s\n", info->id.toUtf8().constData(),
                info->version.toUtf8().constData());
    return 0;
}

// What the toolkit says while it looks for a display.
QByteArray startMessages;

// The toolkit aborts when it finds no display: the user gets a sentence, and then the toolkit's own reasons.
void explainMissingDisplay(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    static std::mutex mutex; // the toolkit's own threads speak, too
    const std::lock_guard lock(mutex);
    startMessages += qFormatLogMessage(type, context, message).toUtf8() + '\n';
    if (type != QtFatalMsg)
        return;
    std::fprintf(stderr,
                 "Zarvo: нет доступного графического экрана. Запустите программу в графическом сеансе.\n%s",
                 startMessages.constData());
    std::_Exit(1);
}

int runWindow(int &argc, char **argv)
{
    const QtMessageHandler usual = qInstallMessageHandler(explainMissingDisplay);
    QApplication application(argc, argv);
    qInstallMessageHandler(usual);
    std::fputs(startMessages.constData(), stderr);
    QApplication::setOrganizationName(u"Zarvo"_s);
    QApplication::setApplicationName(u"Zarvo"_s);

    QApplication::setWindowIcon(QIcon(u":/AppLogo.png"_s));
    InstallRussianTexts();
    ZarvoApp controller(ResourcePath());
    controller.applicationDidFinishLaunching();
    QApplication::exec();
    controller.applicationWillTerminate();
    ChildProcess::killAll();
    if (!controller.waitForWorkers(kPatience)) {
        PrivateFolder::removeAll();
        std::fflush(nullptr);
        std::_Exit(0);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (argc == 4 && mode == "--verify-ipa")
        return verify(argv[2], argv[3]);
    if (argc > 1 && mode == "--self-test")
        return ZarvoSelfTest();
    return runWindow(argc, argv);
}
