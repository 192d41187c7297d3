#include "app/piloted_program.h"
#include "ipa_writer.h"
#include "support/scripted_tools.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <functional>
#include <map>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kForever = 300s;
constexpr int kOften = 1'000'000;
constexpr int kApps = 6;
constexpr qint64 kSmall = 2'000'000;
constexpr qint64 kLarge = 500'000'000; // a check of it by unzip takes a good part of a second
// What is promised is half a second; a loaded machine or a sanitizer takes longer, but nothing is waited for.
constexpr auto kNoWaiting = 4s;
const QByteArray kForeign = "somebody else's";

/// How often a test repeats what it does: ZARVO_ROUNDS=50 to measure, a sample in the usual run.
int rounds(int sample)
{
    const int wanted = qEnvironmentVariableIntValue("ZARVO_ROUNDS");
    return wanted > 0 ? wanted : sample;
}

QByteArray hashOf(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha1);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

QString appID(int number)
{
    return u"com.example.app%1"_s.arg(number);
}

using Way = std::function<void(const PilotedProgram &)>;

/// What a tool does that the program leaves in the middle of its work; the file says that it has done so.
using Nature = std::function<void(Scenario &, const QString &ready)>;

const std::map<QString, Nature> &natures()
{
    static const std::map<QString, Nature> all{
        {u"heeds SIGTERM"_s, [](Scenario &tool, const QString &ready) { tool.touches(ready); }},
        {u"heeds nothing"_s,
         [](Scenario &tool, const QString &ready) {
             tool.ignoresTermination().ignores(SIGHUP).touches(ready);
         }},
        {u"stopped"_s, [](Scenario &tool, const QString &ready) { tool.touches(ready).stops(); }},
        {u"its child heeds nothing"_s,
         [](Scenario &tool, const QString &ready) { tool.leavesGrandchild(kForever, true).touches(ready); }},
        {u"both heed nothing"_s,
         [](Scenario &tool, const QString &ready) {
             tool.ignoresTermination().ignores(SIGHUP).leavesGrandchild(kForever, true).touches(ready);
         }},
    };
    return all;
}

const std::map<QString, Way> &orderlyWays()
{
    static const std::map<QString, Way> ways{
        {u"window closed"_s, [](const PilotedProgram &program) { program.tell("close"); }},
        {u"Ctrl+Q"_s, [](const PilotedProgram &program) { program.tell("key"); }},
        {u"SIGTERM"_s, [](const PilotedProgram &program) { program.signal(SIGTERM); }},
        {u"SIGINT"_s, [](const PilotedProgram &program) { program.signal(SIGINT); }},
        {u"SIGHUP"_s, [](const PilotedProgram &program) { program.signal(SIGHUP); }},
    };
    return ways;
}

} // namespace

class QuittingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void leavesNothing_data();
    void leavesNothing();
    void survivesAnyMoment_data();
    void survivesAnyMoment();
    void disk_data();
    void disk();
    void verifyingEnds_data();
    void verifyingEnds();
    void cleanupTestCase();

private:
    void play(std::chrono::milliseconds download, const QString &action = {}, const QString &nature = {});
    QString inFolder(const QString &name) const { return m_folder.filePath(name); }
    bool prepareDestination();
    /// What is wrong in the destination, in words; empty when nothing is.
    QString damage(bool orderly) const;

    QTemporaryDir m_folder;
    ScriptedTools m_tools;
    QString m_destination;
    std::unique_ptr<TemporaryTmpdir> m_tmpdir;
    QByteArray m_sound;
    std::map<QString, QList<qint64>> m_durations;
};

void QuittingTest::initTestCase()
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(inFolder({}))); // else the toolkit makes one in TMPDIR
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(inFolder(u"config"_s)));
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
    const auto make = [this](const QString &name, const QString &id, qint64 padding) {
        return writeIPA(QFile::encodeName(inFolder(name)).toStdString(), {.id = id, .padding = padding});
    };
    QVERIFY(make(u"small.ipa"_s, appID(0), kSmall));
    QVERIFY(make(u"large.ipa"_s, appID(0), kLarge));
    m_sound = hashOf(inFolder(u"small.ipa"_s));
    m_destination = inFolder(u"destination"_s);
    m_tmpdir = std::make_unique<TemporaryTmpdir>();
}

void QuittingTest::cleanup()
{
    QCOMPARE(PilotedProgram::survivors(2s), 0);
}

// All apps have one identifier, so that one archive serves for all of them; their names differ.
void QuittingTest::play(std::chrono::milliseconds download, const QString &action, const QString &nature)
{
    const QString ready = inFolder(u"ready"_s);
    QFile::remove(ready);
    const auto stays = [&](Scenario &tool) {
        if (!nature.isEmpty())
            natures().at(nature)(tool, ready);
        tool.sleeps(kForever);
    };
    QByteArray apps = "{\"apps\":[";
    for (int i = 0; i < kApps; ++i)
        apps += QStringLiteral(R"(%1{"id":"%2","name":"App %3","version":"1.0","storeID":"%4"})")
                    .arg(i ? u","_s : u""_s, appID(0))
                    .arg(i)
                    .arg(i + 1)
                    .toUtf8();
    Scenario device = m_tools.add(u"devicezarvo"_s);
    device.when({u"devices"}).times(action == u"poll" ? 1 : kOften);
    device.prints(uR"({"devices":[{"id":"P","name":"Phone","ios":"17"}]})");
    stays(device.when({u"devices"}));
    device.when({u"apps"}).prints(QString::fromUtf8(apps + "]}"));
    stays(device.when({u"install"}));
    device.when({u"info"}).prints(u"{\"details\":[]}");
    device.when({u"battery"}).prints(u"{\"details\":[]}");
    Scenario store = m_tools.add(u"ipatool"_s);
    if (action == u"check")
        stays(store.when({u"auth", u"info"}));
    store.when({u"auth", u"info"}).prints(u"{\"email\":\"a@example.com\",\"success\":true}");
    stays(store.when({u"auth", u"login"}));
    if (action == u"verify")
        store.when({u"download"}).copies(inFolder(u"large.ipa"_s)).prints(u"{\"success\":true}");
    store.when({u"download", u"--app-id"})
        .grows(kSmall, download, u"{--output}.tmp")
        .copies(inFolder(u"small.ipa"_s))
        .prints(u"{\"success\":true}");
}

bool QuittingTest::prepareDestination()
{
    QDir(m_destination).removeRecursively();
    QFile foreign(m_destination + u"/App 0 1.0.ipa"_s);
    return QDir().mkpath(m_destination) && foreign.open(QIODevice::WriteOnly) && foreign.write(kForeign) > 0;
}

QString QuittingTest::damage(bool orderly) const
{
    QFile foreign(m_destination + u"/App 0 1.0.ipa"_s);
    if (!foreign.open(QIODevice::ReadOnly) || foreign.readAll() != kForeign)
        return u"the foreign file was touched"_s;
    for (const QString &path : FilesBelow(m_destination, u"*.ipa"_s)) {
        if (!path.contains(u"/.zarvo-") && path != foreign.fileName() && hashOf(path) != m_sound)
            return u"a half-written IPA: "_s + path;
    }
    for (const QString &path : FilesBelow(m_destination, u"report.json"_s)) {
        QFile report(path);
        const bool isWhole = report.open(QIODevice::ReadOnly) &&
                             QJsonDocument::fromJson(report.readAll()).array().size() == kApps;
        if (!path.contains(u"/.zarvo-") && !isWhole)
            return u"a broken report"_s;
    }
    const QStringList left = FilesBelow(m_destination, u".zarvo-*"_s) + m_tmpdir->leftovers();
    return orderly && !left.isEmpty() ? u"left behind: "_s + left.join(u' ') : QString();
}

void QuittingTest::leavesNothing_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("way");
    QTest::addColumn<QString>("nature"); // of the tool; empty: not asked for
    for (const auto &[way, act] : orderlyWays()) {
        for (const QString &action : {u"batch"_s, u"verify"_s})
            QTest::addRow("%s, %s", qPrintable(action), qPrintable(way)) << action << way << QString();
    }
    for (const QString &action : {u"check"_s, u"poll"_s, u"install"_s, u"login"_s}) {
        for (const auto &[nature, play] : natures())
            QTest::addRow("%s, %s", qPrintable(action), qPrintable(nature))
                << action << u"SIGTERM"_s << nature;
    }
    QTest::newRow("check, heeds nothing, SIGKILL") << u"check"_s << u"SIGKILL"_s << u"heeds nothing"_s;
    QTest::newRow("idle") << u"idle"_s << u"SIGTERM"_s << QString();
    for (const QString &way : {u"SIGTERM"_s, u"window closed"_s})
        QTest::addRow("info, %s", qPrintable(way)) << u"info"_s << way << QString();
}

void QuittingTest::leavesNothing()
{
    QFETCH(const QString, action);
    QFETCH(const QString, way);
    QFETCH(const QString, nature);
    const bool orderly = way != u"SIGKILL"; // else the system ends the child, and the folder stays
    for (int round = 0; round < rounds(1); ++round) {
        QVERIFY(prepareDestination());
        m_tmpdir = nullptr;
        m_tmpdir = std::make_unique<TemporaryTmpdir>();
        play(2s, action, nature);
        PilotedProgram program;
        QVERIFY(program.start(m_tools.path(), m_destination, action, inFolder(u"small.ipa"_s)));
        QVERIFY2(program.waitForLine("at work"), program.printed().constData());
        QTRY_VERIFY_WITH_TIMEOUT(nature.isEmpty() || QFile::exists(inFolder(u"ready"_s)), 20'000);
        orderly ? orderlyWays().at(way)(program) : program.signal(SIGKILL);
        const PilotedProgram::End end = program.waitForEnd();
        QCOMPARE(end.status, orderly ? 0 : -SIGKILL);
        QVERIFY2(end.after < kNoWaiting, qPrintable(u"%1 ms"_s.arg(end.after.count())));
        m_durations[way].append(end.after.count());
        QCOMPARE(PilotedProgram::survivors(orderly ? 200ms : 2000ms), 0);
        QCOMPARE(damage(orderly), QString());
    }
}

void QuittingTest::survivesAnyMoment_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("way");
    for (const QString &action : {u"download"_s, u"batch"_s}) {
        for (const QString &way : {u"SIGKILL"_s, u"SIGTERM"_s, u"window closed"_s})
            QTest::addRow("%s, %s", qPrintable(action), qPrintable(way)) << action << way;
    }
}

void QuittingTest::survivesAnyMoment()
{
    QFETCH(const QString, action);
    QFETCH(const QString, way);
    play(20ms);
    const bool orderly = way != u"SIGKILL";
    PilotedProgram whole;
    QVERIFY(prepareDestination());
    QVERIFY(whole.start(m_tools.path(), m_destination, action) && whole.waitForLine("ready"));
    QElapsedTimer clock;
    clock.start();
    QVERIFY2(whole.waitForLine("done"), whole.printed().constData());
    const int duration = static_cast<int>(clock.elapsed());
    whole.tell("close");
    QCOMPARE(whole.waitForEnd().status, 0);

    qsizetype published = 0;
    for (int round = 0; round < rounds(4); ++round) {
        QVERIFY(prepareDestination());
        m_tmpdir = nullptr; // what a killed program left there
        m_tmpdir = std::make_unique<TemporaryTmpdir>();
        PilotedProgram program;
        QVERIFY(program.start(m_tools.path(), m_destination, action) && program.waitForLine("ready"));
        QTest::qSleep(QRandomGenerator::global()->bounded(duration * 5 / 4 + 1));
        orderly ? orderlyWays().at(way)(program) : program.signal(SIGKILL);
        const PilotedProgram::End end = program.waitForEnd();
        QCOMPARE(end.status, orderly ? 0 : -SIGKILL);
        if (orderly)
            m_durations[way].append(end.after.count());
        QCOMPARE(PilotedProgram::survivors(orderly ? 200ms : 2000ms), 0);
        QCOMPARE(damage(orderly), QString());
        published += FilesBelow(m_destination, u"*.ipa"_s).size() - 1;
    }
    qInfo("%d moments within %d ms, %lld IPAs had been published, no damage", rounds(4), duration,
          static_cast<long long>(published));
}

void QuittingTest::disk_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QString>("said");
    QTest::newRow("download onto a full disk")
        << u"download"_s << QByteArray("size=1m") << u"Загрузку выполнить не удалось"_s;
    QTest::newRow("batch onto a full disk")
        << u"batch"_s << QByteArray("size=1m") << u"ошибок: %1"_s.arg(kApps);
    QTest::newRow("batch onto a read-only disk")
        << u"batch"_s << QByteArray("size=1m,ro") << u"только для чтения"_s;
}

// The disk is a tmpfs of its own. Where the system allows none, this fails: the promise would be unchecked.
void QuittingTest::disk()
{
    QFETCH(const QString, action);
    QFETCH(const QByteArray, options);
    QFETCH(const QString, said);
    play(20ms);
    QVERIFY(prepareDestination());
    PilotedProgram program;
    QVERIFY(program.start(m_tools.path(), m_destination, action, {}, options));
    QVERIFY2(program.waitForLine("done"), program.printed().constData());
    QVERIFY2(program.printed().contains(said.toUtf8()), program.printed().constData());
    const QString inside = program.pathInside(m_destination);
    QCOMPARE(FilesBelow(inside, u"*.ipa"_s) + FilesBelow(inside, u".zarvo-*"_s), QStringList());
    program.signal(SIGTERM);
    QCOMPARE(program.waitForEnd().status, 0);
}

void QuittingTest::verifyingEnds_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

// The verifying mode dies of the signal, as a shell expects, but not before it has tidied up.
void QuittingTest::verifyingEnds()
{
    QFETCH(const int, number);
    m_tmpdir = nullptr;
    m_tmpdir = std::make_unique<TemporaryTmpdir>();
    QProcess program;
    program.start(QString::fromLocal8Bit(ZARVO_EXECUTABLE),
                  {u"--verify-ipa"_s, inFolder(u"large.ipa"_s), appID(0)});
    QVERIFY(program.waitForStarted());
    QTRY_VERIFY(!m_tmpdir->leftovers().isEmpty());
    ::kill(static_cast<pid_t>(program.processId()), number);
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitStatus(), QProcess::CrashExit);
    QCOMPARE(program.exitCode(), number);
    QCOMPARE(m_tmpdir->leftovers(), QStringList());
}

void QuittingTest::cleanupTestCase()
{
    for (auto &[way, durations] : m_durations) {
        std::sort(durations.begin(), durations.end());
        qInfo("%s, %lld times: median %lld ms, worst %lld ms", qPrintable(way),
              static_cast<long long>(durations.size()),
              static_cast<long long>(durations[durations.size() / 2]),
              static_cast<long long>(durations.last()));
    }
}

QTEST_GUILESS_MAIN(QuittingTest)
#include "tst_quitting.moc"
