#include "ipa_writer.h"
#include "support/scripted_tools.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLimit = 60'000;
constexpr QStringView kDamaged = u"IPA повреждён или не является ZIP-архивом.\n";
constexpr QStringView kOther = u"Получен IPA другого приложения. Файл не принят.\n";
const QString kID = u"com.example.app"_s;

struct Ended
{
    QProcess::ExitStatus how = QProcess::CrashExit;
    int code = -1;
    QString out;
    QString err;
};

std::filesystem::path pathOf(const QString &name)
{
    return QFile::encodeName(name).toStdString();
}

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        const QDir folder(m_folder.path());
        for (const QString &name : {u"app.ipa"_s, u"Приложение [1]*?.ipa"_s, u"-t.ipa"_s})
            QVERIFY(writeIPA(pathOf(folder.filePath(name)), {.id = kID, .version = u"2.5"_s}));

        QList<ZipEntry> entries = entriesOfIPA({.id = kID});
        for (ZipEntry &entry : entries) {
            if (entry.name.endsWith("Info.plist"))
                entry.data.replace("CFBundleShortVersionString", "OtherKey");
        }
        QVERIFY(writeZip(pathOf(folder.filePath(u"unversioned.ipa"_s)), entries));

        QFile broken(folder.filePath(u"broken"_s));
        QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write("PK nothing of the kind") > 0);
    }

    void cleanup() { QCOMPARE(m_tmpdir.leftovers(), QStringList()); }

    void testsItself_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("alone") << QStringList{u"--self-test"_s};
        QTest::newRow("further words are ignored")
            << QStringList{u"--self-test"_s, u"--verify-ipa"_s, u"x"_s};
        QTest::newRow("five words") << QStringList{u"--self-test"_s, u"a"_s, u"b"_s, u"c"_s, u"d"_s};
    }

    void testsItself()
    {
        QFETCH(const QStringList, arguments);
        const Ended ended = run(arguments, {u"DISPLAY"_s, u"QT_QPA_PLATFORM=none-such"_s, u"LC_ALL=C"_s});
        QCOMPARE(ended.how, QProcess::NormalExit);
        QCOMPARE(ended.code, 0);
        QCOMPARE(ended.out, u"Catalina native core: password policy and IPA names passed\n"_s);
        QCOMPARE(ended.err, QString());
    }

    void verifies_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");

        const QString sound = u"Verified com.example.app, version 2.5\n"_s;
        const QString damaged = kDamaged.toString();
        const auto accepted = [](const char *name, const QString &file, const QString &out,
                                 const QStringList &variables = {}) {
            QTest::newRow(name) << file << kID << variables << out << QString();
        };
        const auto refused = [](const char *name, const QString &file, const QString &err,
                                const QString &id = kID) {
            QTest::newRow(name) << file << id << QStringList() << QString() << err;
        };
        accepted("sound", u"app.ipa"_s, sound);
        accepted("no version in it", u"unversioned.ipa"_s,
                 u"Verified com.example.app, version не указана\n"_s);
        accepted("Cyrillic, brackets, stars in the C locale", u"Приложение [1]*?.ipa"_s, sound,
                 {u"LC_ALL=C"_s});
        accepted("a dash in front", u"-t.ipa"_s, sound);
        accepted("no display, no known platform", u"app.ipa"_s, sound,
                 {u"DISPLAY"_s, u"QT_QPA_PLATFORM=none-such"_s});
        refused("another app", u"app.ipa"_s, kOther.toString(), u"com.example.App"_s);
        refused("broken", u"broken"_s, damaged);
    }

    void verifies()
    {
        QFETCH(const QString, file);
        QFETCH(const QString, id);
        QFETCH(const QStringList, environment);
        QFETCH(const QString, out);
        const Ended ended = run({u"--verify-ipa"_s, file, id}, environment);
        QCOMPARE(ended.how, QProcess::NormalExit);
        QCOMPARE(ended.out, out);
        QTEST(ended.err, "err");
        QCOMPARE(ended.code, out.isEmpty() ? 1 : 0);
    }

    void failsWithoutADisplay_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no arguments") << QStringList();
        QTest::newRow("capitals are no mode") << QStringList{u"--SELF-TEST"_s};
        QTest::newRow("two words to verify are no mode") << QStringList{u"--verify-ipa"_s, u"app.ipa"_s};
        QTest::newRow("four words to verify are no mode")
            << QStringList{u"--verify-ipa"_s, u"app.ipa"_s, kID, u"more"_s};
    }

    // That the window was asked for shows in what is said when there is nowhere to open it.
    void failsWithoutADisplay()
    {
        QFETCH(const QStringList, arguments);
        const Ended ended = run(
            arguments, {u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s, u"WAYLAND_SOCKET"_s, u"QT_QPA_PLATFORM=xcb"_s});
        QCOMPARE(ended.how, QProcess::NormalExit);
        QCOMPARE(ended.code, 1);
        QCOMPARE(ended.out, QString());
        QVERIFY2(ended.err.startsWith(u"Zarvo: ") && ended.err.contains(u"графическ"), qPrintable(ended.err));
        QVERIFY2(ended.err.contains(u"connect to display"), qPrintable(ended.err)); // the toolkit's reason
    }

private:
    /// Runs the program in the folder of the archives.
    Ended run(const QStringList &arguments, const QStringList &environment = {}) const;

    QTemporaryDir m_folder;
    TemporaryTmpdir m_tmpdir;
};

Ended CommandLineTest::run(const QStringList &arguments, const QStringList &environment) const
{
    QProcess program;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (const QString &variable : environment) {
        const qsizetype equals = variable.indexOf(u'=');
        if (equals < 0)
            variables.remove(variable);
        else
            variables.insert(variable.first(equals), variable.sliced(equals + 1));
    }
    program.setProcessEnvironment(variables);
    program.setWorkingDirectory(m_folder.path());
    program.start(QString::fromLocal8Bit(ZARVO_EXECUTABLE), arguments);
    if (!program.waitForFinished(kLimit))
        return {};
    return {program.exitStatus(), program.exitCode(), QString::fromUtf8(program.readAllStandardOutput()),
            QString::fromUtf8(program.readAllStandardError())};
}

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
