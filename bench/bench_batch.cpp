// All apps of a phone with a store tool that answers at once: what the program itself adds for each app.
#include "app/zarvo_app.h"
#include "ipa_writer.h"
#include "measuring.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int kApps = 500;
constexpr int kToolRuns = 31;
constexpr double kOwnTime = 0.050;
constexpr int kPatience = 300'000; // ms

// One app many times over, under as many names, so that one IPA serves for all.
QByteArray appsReply()
{
    QJsonArray apps;
    for (int i = 0; i < kApps; ++i)
        apps.append(QJsonObject{{u"id"_s, u"com.example.app"_s},
                                {u"name"_s, u"App %1"_s.arg(i)},
                                {u"version"_s, u"1.0"_s},
                                {u"storeID"_s, u"1"_s}});
    return QJsonDocument(QJsonObject{{u"apps"_s, apps}}).toJson(QJsonDocument::Compact) + '\n';
}

bool installTools(const QString &folder)
{
    QDir().mkpath(folder + u"/Tools"_s);
    QFile reply(folder + u"/apps.json"_s);
    const bool written = reply.open(QIODevice::WriteOnly) && reply.write(appsReply()) > 0;
    writeScript(folder + u"/Tools/ipatool"_s, R"(case "$*" in
*download*) while [ "$1" != --output ]; do shift; done; cp "$(dirname "$0")/../app.ipa" "$2" ;;
esac
echo '{"success":true,"email":"owner@example.com"}')");
    writeScript(folder + u"/Tools/devicezarvo"_s, R"(case "$1" in
devices) echo '{"devices":[{"id":"phone","name":"Phone","ios":"17.5"}]}' ;;
apps) cat "$(dirname "$0")/../apps.json" ;;
*) echo '{"details":[]}' ;;
esac)");
    return written && writeIPA((folder + u"/app.ipa"_s).toStdString(), {});
}

void startBatch(const QWidget *window, const QString &destination)
{
    window->findChild<QPushButton *>(u"allButton"_s)->click();
    auto *chooser = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
    if (!chooser)
        return;
    auto *name = chooser->findChild<QLineEdit *>(u"fileNameEdit"_s);
    name->setText(destination);
    QTest::keyClick(name, Qt::Key_Return);
}

bool isWhole(const QString &report)
{
    QFile file(report);
    if (!file.open(QIODevice::ReadOnly) ||
        (file.permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther)))
        return false;
    const QJsonArray entries = QJsonDocument::fromJson(file.readAll()).array();
    return entries.size() == kApps &&
           std::all_of(entries.begin(), entries.end(),
                       [](const QJsonValue &entry) { return entry["status"_L1] == "downloaded"_L1; });
}

// The tool and the three runs of unzip without which there is no checked download.
double bareTime(const QString &folder)
{
    const QString unzip = u"/usr/bin/unzip"_s;
    const QString ipa = folder + u"/app.ipa"_s;
    std::vector<double> times(kToolRuns);
    for (double &time : times)
        time = runBare({folder + u"/Tools/ipatool"_s, u"download"_s, u"--output"_s, folder + u"/bare.ipa"_s})
                   .seconds +
               runBare({unzip, u"-tqq"_s, ipa}).seconds + runBare({unzip, u"-Z1"_s, ipa}).seconds +
               runBare({unzip, u"-p"_s, ipa, u"Payload/App.app/Info.plist"_s}).seconds;
    return median(times);
}

} // namespace

void benchBatch(const QString &parent)
{
    const QString folder = parent + u"/batch"_s;
    const QString destination = folder + u"/saved"_s;
    const QString what = u"batch of %1 apps: own time an app, beyond tool and unzip"_s.arg(kApps);
    if (!QDir().mkpath(destination) || !installTools(folder))
        return report(what, u"the tools could not be made"_s, u"≤ 50 ms"_s, false);
    ZarvoApp controller(folder);
    controller.applicationDidFinishLaunching();
    const QWidget *window = mainWindow();
    auto *picker = window->findChild<QComboBox *>(u"phonePicker"_s);
    const auto *all = window->findChild<QPushButton *>(u"allButton"_s);
    const bool found =
        QTest::qWaitFor([&] { return picker->count() == 2 && picker->isEnabled(); }, kPatience);
    picker->setCurrentIndex(1);
    Q_EMIT picker->activated(1);
    const bool read = QTest::qWaitFor([&] { return all->isEnabled(); }, kPatience);
    const double start = now();
    startBatch(window, destination);
    const bool ended = QTest::qWaitFor([&] { return all->isEnabled(); }, kPatience);
    const double each = (now() - start) / kApps;
    const double bare = bareTime(folder);
    const QString made = QDir(destination).entryList({u"iPhone-IPA-*"_s}, QDir::Dirs).value(0);
    const bool whole = found && read && ended && isWhole(u"%1/%2/report.json"_s.arg(destination, made));
    report(what,
           u"%1 ms (%2 ms less %3 ms), report %4"_s.arg((each - bare) * 1e3, 0, 'f', 1)
               .arg(each * 1e3, 0, 'f', 1)
               .arg(bare * 1e3, 0, 'f', 1)
               .arg(whole ? u"whole"_s : u"NOT whole"_s),
           u"≤ 50 ms"_s, whole && each - bare <= kOwnTime);
}
