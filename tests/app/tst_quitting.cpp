#include "app/piloted_program.h"
#include "ipa_writer.h"
#include "support/files.h"
#include "support/rows.h"
#include "support/scripted_tools.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLockFile>
#include <QProcess>
#include <QRandomGenerator>

#include <algorithm>
#include <csignal>
#include <map>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kForever = 300s;
constexpr int kOften = 1'000'000;
constexpr int kApps = 6;
constexpr qint64 kSmall = 2'000'000;
constexpr qint64 kLarge = 200'000'000; // a check of it by unzip takes some tenths of a second
// What is promised is half a second; a loaded machine or a sanitizer takes longer, but nothing is waited for.
constexpr auto kNoWaiting = 4s;
const QString kID = u"com.example.app0"_s;
const QByteArray kForeign = "somebody else's";

QByteArray hashOf(const QString &path)
{
    return QCryptographicHash::hash(ContentOf(path), QCryptographicHash::Sha1);
}

/// What a tool is like that the program leaves in the middle of its work.
struct Nature
{
    const char *name = nullptr;
    bool isStubborn = false; ///< heeds neither SIGTERM nor SIGHUP
    bool stops = false;
    bool hasStubbornChild = false;
};
const Nature kNatures[] = {
    {"heeds SIGTERM"},
    {"heeds nothing", true},
    {"stopped", false, true},
    {"its child heeds nothing", false, false, true},
    {"both heed nothing", true, false, true},
};

// A word that the pilot understands, or a signal.
const QStringList kOrderlyWays{u"close"_s, u"key"_s, u"SIGTERM"_s, u"SIGINT"_s, u"SIGHUP"_s};
const QString kKilled = u"SIGKILL"_s;

void end(PilotedProgram &program, const QString &way)
{
    static const std::map<QString, int> signals{
        {u"SIGTERM"_s, SIGTERM}, {u"SIGINT"_s, SIGINT}, {u"SIGHUP"_s, SIGHUP}, {kKilled, SIGKILL}};
    const auto number = signals.find(way);
    number == signals.end() ? program.tell(way.toLatin1()) : program.signal(number->second);
}

} // namespace

class QuittingTest : public QObject
{
    Q_OBJECT

private:
    // All apps have one identifier, so that one archive serves for all of them; their names differ.
    void play(std::chrono::milliseconds download, const QString &action = {}, const Nature *nature = nullptr)
    {
        const QString ready = inFolder(u"ready"_s);
        QFile::remove(ready);
        const auto stays = [&](Scenario &tool) {
            if (nature && nature->isStubborn)
                tool.ignoresTermination().ignores(SIGHUP);
            if (nature && nature->hasStubbornChild)
                tool.leavesGrandchild(kForever, true);
            tool.touches(ready);
            if (nature && nature->stops)
                tool.stops();
            tool.sleeps(kForever);
        };
        QStringList apps;
        for (int i = 0; i < kApps; ++i)
            apps +=
                uR"({"id":"%1","name":"App %2","version":"1.0","storeID":"%3"})"_s.arg(kID).arg(i).arg(i + 1);
        Scenario device = m_tools.add(u"devicezarvo"_s);
        device.when({u"devices"}).times(action == u"poll" ? 1 : kOften);
        device.prints(uR"({"devices":[{"id":"P","name":"Phone","ios":"17"}]})");
        stays(device.when({u"devices"}));
        device.when({u"apps"}).prints(u"{\"apps\":[%1]}"_s.arg(apps.join(u',')));
        stays(device.when({u"install"}));
        device.when({}).prints(u"{\"details\":[]}");
        Scenario store = m_tools.add(u"ipatool"_s);
        if (action == u"check")
            stays(store.when({u"auth", u"info"}));
        store.when({u"auth", u"info"}).prints(u"{\"email\":\"a@example.com\",\"success\":true}");
        stays(store.when({u"auth", u"login"}));
        if (action == u"verify")
            store.when({u"download"}).copies(inFolder(u"large.ipa"_s)).prints(u"{\"success\":true}");
        store.when({u"download", u"--app-id"}).grows(kSmall, download, u"{--output}.tmp");
        store.copies(inFolder(u"small.ipa"_s)).prints(u"{\"success\":true}");
    }

    QString inFolder(const QString &name) const { return m_folder.filePath(name); }
    /// A fresh destination, fresh settings, and a fresh folder for temporary files. A foreign file is there,
    /// which may have the name that the download is to get. Another program holds, all the time, the lock of
    /// the settings that all programs of Qt share.
    bool prepare(bool isInTheWay = false)
    {
        m_tmpdir = nullptr; // with what a killed program left there
        m_shared = nullptr;
        m_settings = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_settings->path()));
        m_shared = std::make_unique<QLockFile>(m_settings->filePath(u"QtProject.conf.lock"_s));
        m_tmpdir = std::make_unique<TemporaryTmpdir>();
        QDir(m_destination).removeRecursively();
        m_foreign = m_destination + (isInTheWay ? u"/App 0-1.0.ipa"_s : u"/foreign.ipa"_s);
        QFile foreign(m_foreign);
        return m_shared->lock() && QDir().mkpath(m_destination) && foreign.open(QIODevice::WriteOnly) &&
               foreign.write(kForeign) > 0;
    }

    /// What is wrong in the destination, in words; empty when nothing is.
    QString damage(bool orderly) const
    {
        if (ContentOf(m_foreign) != kForeign)
            return u"the foreign file was touched"_s;
        for (const QString &path : FilesBelow(m_destination, u"*.ipa"_s)) {
            if (!path.contains(u"/.zarvo-") && path != m_foreign && hashOf(path) != m_sound)
                return u"a half-written IPA: "_s + path;
        }
        for (const QString &path : FilesBelow(m_destination, u"report.json"_s)) {
            const bool isWhole = QJsonDocument::fromJson(ContentOf(path)).array().size() == kApps;
            if (!path.contains(u"/.zarvo-") && !isWhole)
                return u"a broken report"_s;
        }
        const QStringList left = FilesBelow(m_destination, u".zarvo-*"_s) + m_tmpdir->leftovers();
        return orderly && !left.isEmpty() ? u"left behind: "_s + left.join(u' ') : QString();
    }

    void endAndLookAround(PilotedProgram &program, const QString &way)
    {
        const bool orderly = way != kKilled; // else the folder stays
        end(program, way);
        const PilotedProgram::End ended = program.waitForEnd();
        QCOMPARE(ended.status, orderly ? 0 : -SIGKILL);
        QCOMPARE_LT(ended.after, kNoWaiting);
        QCOMPARE(PilotedProgram::survivors(2s), 0);
        QCOMPARE(damage(orderly), QString());
    }

    QTemporaryDir m_folder;
    ScriptedTools m_tools;
    const QString m_destination = inFolder(u"destination"_s);
    QString m_foreign;
    std::unique_ptr<QTemporaryDir> m_settings;
    std::unique_ptr<QLockFile> m_shared;
    std::unique_ptr<TemporaryTmpdir> m_tmpdir;
    QByteArray m_sound;

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("XDG_RUNTIME_DIR",
                QFile::encodeName(m_folder.path())); // else Qt makes one in TMPDIR
        for (const char *bus : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
            qputenv(bus, "unix:path=/nonexistent");
        for (const auto &[name, padding] : {std::pair("small.ipa", kSmall), std::pair("large.ipa", kLarge)})
            QVERIFY(
                writeIPA(inFolder(QString::fromLatin1(name)).toStdString(), {.id = kID, .padding = padding}));
        m_sound = hashOf(inFolder(u"small.ipa"_s));
    }

    void cleanup() { QCOMPARE(PilotedProgram::survivors(2s), 0); }
    void leavesNothing_data()
    {
        const Rows<QString, QString, const Nature *> row; // what is going on, how it ends
        const auto add = [&](const QString &action, const QString &way, const Nature *nature = nullptr) {
            row(qPrintable(u"%1, %2, %3"_s.arg(action, way, QLatin1StringView(nature ? nature->name : ""))),
                action, way, nature);
        };
        for (const QString &way : kOrderlyWays) {
            for (const QString &action : {u"batch"_s, u"verify"_s})
                add(action, way);
        }
        for (const QString &action : {u"check"_s, u"poll"_s, u"install"_s, u"login"_s}) {
            for (const Nature &nature : kNatures)
                add(action, u"SIGTERM"_s, &nature);
        }
        add(u"check"_s, kKilled, &kNatures[1]);
        add(u"idle"_s, u"SIGTERM"_s);
        add(u"info"_s, u"SIGTERM"_s);
        add(u"info"_s, u"close"_s);
    }

    void leavesNothing()
    {
        const auto &[action, way, nature] = Row<QString, QString, const Nature *>();
        for (int round = 0; round < Rounds(1); ++round) {
            QVERIFY(prepare());
            play(2s, action, nature);
            PilotedProgram program;
            QVERIFY(program.start(m_tools.path(), m_destination, action, inFolder(u"small.ipa"_s)));
            QVERIFY2(program.waitForLine("at work"), program.printed().constData());
            QTRY_VERIFY_WITH_TIMEOUT(!nature || QFile::exists(inFolder(u"ready"_s)), 20'000);
            endAndLookAround(program, way);
        }
    }

    void survivesAnyMoment_data()
    {
        const Rows<QString, QString> row;
        for (const QString &action : {u"download"_s, u"batch"_s}) {
            for (const QString &way : {kKilled, u"SIGTERM"_s, u"close"_s})
                row(qPrintable(action + u", "_s + way), action, way);
        }
    }

    void survivesAnyMoment()
    {
        const auto &[action, way] = Row<QString, QString>();
        play(20ms);
        PilotedProgram whole;
        QVERIFY(prepare());
        QVERIFY(whole.start(m_tools.path(), m_destination, action) && whole.waitForLine("ready"));
        QElapsedTimer clock;
        clock.start();
        QVERIFY2(whole.waitForLine("done"), whole.printed().constData());
        const int duration = static_cast<int>(clock.elapsed());
        whole.tell("close");
        QCOMPARE(whole.waitForEnd().status, 0);

        for (int round = 0; round < Rounds(4); ++round) {
            QVERIFY(prepare(round % 2 == 1));
            PilotedProgram program;
            QVERIFY(program.start(m_tools.path(), m_destination, action) && program.waitForLine("ready"));
            QTest::qSleep(QRandomGenerator::global()->bounded(duration * 5 / 4 + 1));
            endAndLookAround(program, way);
        }
    }

    // The verifying mode dies of the signal, as a shell expects, but not before it has tidied up.
    void verifyingEnds()
    {
        for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
            QVERIFY(prepare());
            QProcess program;
            program.start(QString::fromLocal8Bit(ZARVO_EXECUTABLE),
                          {u"--verify-ipa"_s, inFolder(u"large.ipa"_s), kID});
            QVERIFY(program.waitForStarted());
            QTRY_VERIFY(!m_tmpdir->leftovers().isEmpty());
            ::kill(static_cast<pid_t>(program.processId()), number);
            QVERIFY(program.waitForFinished());
            QCOMPARE(program.exitStatus(), QProcess::CrashExit);
            QCOMPARE(program.exitCode(), number);
            QCOMPARE(m_tmpdir->leftovers(), QStringList());
        }
    }
};

QTEST_GUILESS_MAIN(QuittingTest)
#include "tst_quitting.moc"
