// Two programs at once.
#include "app/piloted_program.h"
#include "app/window_fixture.h"
#include "device/device_history.h"
#include "ipa_writer.h"
#include "support/files.h"

#include <QSettings>

#include <array>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// A program of its own with a phone and a store of its own; settings and folder are shared.
struct Zarvo
{
    Zarvo(const QString &phone, qint64 padding)
        : archive(tools.filePath(u"app.ipa"_s))
    {
        if (!writeIPA(QFile::encodeName(archive).toStdString(), {.padding = padding}))
            qFatal("cannot write an IPA");
        const QString app = uR"({"id":"com.example.app","version":"1.0","storeID":"1","name":"%1"})"_s;
        Scenario device = tools.add(u"devicezarvo"_s);
        device.when({u"devices"}).prints(uR"({"devices":[{"id":"%1","name":"%1","ios":"17"}]})"_s.arg(phone));
        device.when({u"apps"}).prints(uR"({"apps":[%1,%2]})"_s.arg(app.arg(u"A"_s), app.arg(u"B"_s)));
        device.when({u"info"}).prints(u"{\"details\":[]}");
        Scenario store = tools.add(u"ipatool"_s);
        store.when({u"auth"}).prints(u"{\"email\":\"a@example.com\",\"success\":true}");
        store.when({u"download"})
            .awaits(tools.filePath(u"go"_s))
            .copies(archive)
            .prints(u"{\"success\":true}");
    }

    ScriptedTools tools;
    QString archive;
    PilotedProgram program;
};

} // namespace

class WindowRacesTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void twoPrograms()
    {
        for (int round = 0; round < Rounds(3); ++round) {
            const QTemporaryDir destination;
            const TemporaryTmpdir temporary;
            QFile::remove(Program::settingsFile());
            Zarvo one(u"One"_s, 1000);
            Zarvo other(u"Other"_s, 2000);
            const std::array both{&one, &other};
            for (Zarvo *zarvo : both)
                QVERIFY(zarvo->program.start(zarvo->tools.path(), destination.path(), u"download"_s));
            for (Zarvo *zarvo : both)
                QVERIFY2(zarvo->program.waitForLine("at work"), zarvo->program.printed().constData());
            for (Zarvo *zarvo : both)
                zarvo->tools.touch(u"go"_s);
            for (Zarvo *zarvo : both) {
                QVERIFY2(zarvo->program.waitForLine("done"), zarvo->program.printed().constData());
                const QString said = QString::fromUtf8(zarvo->program.printed()).section(u'\n', -3, -3);
                const QStringList ends{u"IPA сохранён: A-1.0.ipa"_s,
                                       u"Не удалось сохранить «A-1.0.ipa»: Файл существует."_s};
                QVERIFY2(ends.contains(said), qPrintable(said));
            }
            for (Zarvo *zarvo : both) {
                zarvo->program.signal(SIGTERM);
                QCOMPARE(zarvo->program.waitForEnd().status, 0);
            }
            QCOMPARE(PilotedProgram::survivors(200ms), 0);
            const QStringList saved = FilesBelow(destination.path(), u"*.ipa"_s);
            QCOMPARE(saved.size(), 1);
            const QByteArray bytes = ContentOf(saved.first()); // what has a final name is whole
            QVERIFY(bytes == ContentOf(one.archive) || bytes == ContentOf(other.archive));
            QCOMPARE(FilesBelow(destination.path(), u".zarvo-*"_s), QStringList());
            QCOMPARE(PrivateFoldersIn(temporary.path()), QStringList());
            // Each writes the whole history as it knows it: the last one's stands, and is whole.
            const QSettings settings(Program::settingsFile(), QSettings::IniFormat);
            const QList<PhoneEntry> history = LoadedHistory(settings.value(u"zarvo.deviceHistory.v1"_s));
            QCOMPARE(settings.status(), QSettings::NoError);
            QVERIFY(!history.isEmpty());
            for (const PhoneEntry &entry : history)
                QVERIFY(entry.id == entry.name && (entry.id == "One"_L1 || entry.id == "Other"_L1));
        }
    }
};

QTEST_MAIN(WindowRacesTest)
#include "tst_window_races.moc"
