// Measures the figures that the program is built for and prints them as one table; those of the device tool
// alone with the word "devices". Exit status 1 when one is missed.
#include "measuring.h"

#include <QApplication>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <string_view>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (mode == "--print-time")
        return printTime();
    if (mode == "--show-window" && argc == 3)
        return showWindowOnce(argc, argv);
    if (mode == "--publish" && argc == 4)
        return publishOnly(argv[2], argv[3]);

    // Neither the display nor the message bus of who measures.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
    QApplication application(argc, argv);
    const QString self = QCoreApplication::applicationFilePath();
    const QString build = QFileInfo(self).absolutePath() + u"/.."_s;
    const QString zarvo = build + u"/bin/zarvo"_s;
    const QTemporaryDir folder;
    qputenv("XDG_CONFIG_HOME", folder.path().toLocal8Bit()); // not the settings of who measures
    std::printf("| what | measured | figure | |\n|---|---|---|---|\n");
    // First, while this process is small: the system counts a child's memory from what it was forked with.
    benchDevices(build + u"/lib/zarvo/Tools/devicezarvo"_s, build + u"/demo/bin/virtual_phone"_s,
                 folder.path());
    if (mode != "devices") {
        benchRunner(self);
        benchIPA(zarvo, folder.path());
        benchRedaction();
        benchWindow(self, folder.path());
        benchBatch(folder.path());
    }
    return allMet() ? 0 : 1;
}
