// Quitting in the middle of work: how long it takes, and what is left.
#include "app/piloted_program.h"
#include "ipa_writer.h"
#include "measuring.h"
#include "support/scripted_tools.h"

#include <QDir>
#include <QDirIterator>

#include <algorithm>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr int kQuitRounds = 5; // of each way
constexpr auto kForever = 300s;
constexpr double kLongestQuit = 500; // ms
constexpr auto kGrace = 100ms;       // for the system to take away what has been killed
constexpr qint64 kSmall = 2'000'000;
constexpr qint64 kLarge = 500'000'000; // a check of it by unzip takes a good part of a second

struct Ends
{
    std::vector<double> milliseconds;
    bool clean = true;
};

// The device tool does not listen when it is asked to end.
void play(Scenario device, Scenario store, const QString &archive)
{
    device.when({u"devices"}).prints(uR"({"devices":[{"id":"P","name":"Phone","ios":"17"}]})");
    device.when({u"apps"}).prints(
        uR"({"apps":[{"id":"com.example.app","name":"App","version":"1.0","storeID":"1"}]})");
    device.when({u"install"}).ignoresTermination().sleeps(kForever);
    device.when({u"info"}).prints(u"{\"details\":[]}");
    store.when({u"auth", u"info"}).prints(u"{\"email\":\"a@example.com\",\"success\":true}");
    store.when({u"auth", u"login"}).sleeps(kForever);
    if (archive.isEmpty())
        store.when({u"download"}).grows(kSmall, kForever, u"{--output}.tmp");
    else
        store.when({u"download"}).copies(archive).prints(u"{\"success\":true}");
}

bool isEmptyOfPrivateFolders(const QString &folder)
{
    return !QDirIterator(folder, {u".zarvo-*"_s}, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories)
                .hasNext();
}

void quitOnce(const QString &resources, const QString &action, const QString &folder, bool bySignal,
              Ends &ends)
{
    const TemporaryTmpdir temporary;
    const QString destination = folder + u"/destination"_s;
    QDir(destination).removeRecursively();
    PilotedProgram program;
    if (!QDir().mkpath(destination) ||
        !program.start(resources, destination, action, folder + u"/small.ipa"_s) ||
        !program.waitForLine("at work")) {
        ends.clean = false;
        return;
    }
    bySignal ? program.signal(SIGTERM) : program.tell("close");
    const PilotedProgram::End end = program.waitForEnd();
    ends.milliseconds.push_back(static_cast<double>(end.after.count()));
    ends.clean = ends.clean && end.status == 0 && PilotedProgram::survivors(kGrace) == 0 &&
                 temporary.leftovers().isEmpty() && isEmptyOfPrivateFolders(destination);
}

} // namespace

void benchQuitting(const QString &parent)
{
    const QString folder = parent + u"/quitting"_s;
    const auto make = [&](const QString &name, qint64 padding) {
        return writeIPA(QFile::encodeName(folder + name).toStdString(),
                        {.id = u"com.example.app"_s, .padding = padding});
    };
    QDir().mkpath(folder);
    const bool made = make(u"/small.ipa"_s, kSmall) && make(u"/large.ipa"_s, kLarge);
    ScriptedTools tools;
    for (const QString &action :
         {u"idle"_s, u"download"_s, u"verify"_s, u"batch"_s, u"install"_s, u"login"_s}) {
        play(tools.add(u"devicezarvo"_s), tools.add(u"ipatool"_s),
             action == u"verify" ? folder + u"/large.ipa"_s : QString());
        Ends ends;
        ends.clean = made;
        for (int round = 0; round < 2 * kQuitRounds; ++round)
            quitOnce(tools.path(), action, folder, round % 2 == 0, ends);
        const QString what = u"quitting in the middle of “%1”, by signal and by window, worst of %2"_s;
        const double slowest = ends.milliseconds.empty() ? 0 : worst(ends.milliseconds);
        report(what.arg(action).arg(ends.milliseconds.size()),
               u"%1 ms, %2"_s.arg(slowest, 0, 'f', 0)
                   .arg(ends.clean ? u"status 0, no child, no folder left"_s : u"NOT clean"_s),
               u"≤ 0.5 s"_s, ends.clean && slowest <= kLongestQuit);
    }
    QDir(folder).removeRecursively();
}
