// Measures the figures that the program is built for and prints them as one table; with the name of a part
// that part alone. Exit status 1 when a figure is missed.
#include "measuring.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

QByteArray afterLabel(const QString &path, const QByteArray &label)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "?";
    const QByteArray text = file.readAll();
    const qsizetype at = text.indexOf(label) + label.size();
    return text.mid(at, text.indexOf('\n', at) - at).trimmed();
}

// What the figures are worth depends on where they come from, and on what else ran there.
void nameTheMachine()
{
    report(u"machine"_s,
           u"%1 × %2; %3, Linux %4; load %5"_s.arg(std::thread::hardware_concurrency())
               .arg(QString::fromUtf8(afterLabel(u"/proc/cpuinfo"_s, "model name\t: ")),
                    QSysInfo::prettyProductName(), QSysInfo::kernelVersion().section(u'.', 0, 1),
                    QString::fromUtf8(afterLabel(u"/proc/loadavg"_s, {})).section(u' ', 0, 0)));
}

/// For the counting of instructions; exit status 0 unless there is no such work.
int countWork(std::string_view work, int argc, char **argv)
{
    if (work == "redaction" && argc == 5)
        countRedaction(argv[3], argv[4]);
    else if (work == "validation" && argc == 4)
        countValidation(argv[3]);
    else if (work == "keystroke" && argc == 4)
        countKeystroke(argc, argv, std::atoi(argv[3]));
    else
        return 1;
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (mode == "--print-time")
        return printTime();
    if (mode == "--show-window" && argc == 3)
        return showWindowOnce(argc, argv);
    if (mode == "--publish" && argc == 4)
        return publishOnly(argv[2], argv[3]);
    if (mode == "--count" && argc > 2)
        return countWork(argv[2], argc, argv);

    // Neither the display, the settings nor the message bus of who measures.
    const QTemporaryDir folder;
    const QByteArray own = QFile::encodeName(folder.path());
    for (const auto &[name, value] :
         {std::pair<const char *, QByteArray>{"QT_QPA_PLATFORM", "offscreen"},
          {"QT_LOGGING_RULES", "default.warning=false"}, // what offscreen cannot do
          {"XDG_CONFIG_HOME", own},
          {"XDG_RUNTIME_DIR", own},
          {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"},
          {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"}})
        qputenv(name, value);
    QApplication application(argc, argv);
    const QString self = QCoreApplication::applicationFilePath();
    const QString build = QFileInfo(self).absolutePath() + u"/.."_s;
    const QString zarvo = build + u"/bin/zarvo"_s;
    std::printf("| what | measured | figure | |\n|---|---|---|---|\n");
    nameTheMachine();
    const std::pair<std::string_view, std::function<void()>> parts[] = {
        {"devices",
         [&] {
             benchDevices(build + u"/lib/zarvo/Tools/devicezarvo"_s, build + u"/demo/bin/virtual_phone"_s,
                          folder.path());
         }},
        {"runner", [&] { benchRunner(self); }},
        {"ipa", [&] { benchIPA(zarvo, folder.path()); }},
        {"display", [&] { benchDisplay(zarvo, folder.path()); }},
        {"redaction", [&] { benchRedaction(folder.path()); }},
        {"window", [&] { benchWindow(self, folder.path()); }},
        {"quitting", [&] { benchQuitting(folder.path()); }},
        {"batch", [&] { benchBatch(folder.path()); }},
    };
    for (const auto &[name, measure] : parts) {
        if (mode.empty() || mode == name)
            measure();
    }
    return allMet() ? 0 : 1;
}
