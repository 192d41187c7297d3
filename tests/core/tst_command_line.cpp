#include "ipa_writer.h"
#include "support/rows.h"
#include "support/scripted_tools.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLimit = 60'000;
const QString kID = u"com.example.app"_s;

const QStringList kNoPlatform{u"DISPLAY"_s, u"QT_QPA_PLATFORM=none-such"_s};

struct Ended
{
    int code = -1; ///< -1: crashed or had to be killed
    QString out;
    QString err;
};

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const auto path = [this](const QString &name) { return m_folder.filePath(name).toStdString(); };
        for (const QString &name : {u"app.ipa"_s, u"Приложение [1]*?.ipa"_s, u"-t.ipa"_s})
            QVERIFY(writeIPA(path(name), {.id = kID, .version = u"2.5"_s}));
        QFile broken(m_folder.filePath(u"broken"_s));
        QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write("PK nothing of the kind") > 0);
    }

    void cleanup() { QCOMPARE(m_tmpdir.leftovers(), QStringList()); }

    void testsItself()
    {
        for (const QString &further : {QString(), u" --verify-ipa x"_s, u" a b c d"_s}) { // they are ignored
            const Ended ended =
                run((u"--self-test"_s + further).split(u' '), kNoPlatform + QStringList{u"LC_ALL=C"_s});
            QCOMPARE(ended.code, 0);
            QCOMPARE(ended.out, u"Catalina native core: password policy and IPA names passed\n"_s);
            QCOMPARE(ended.err, QString());
        }
    }

    void verifies_data()
    {
        const Rows<QString, QString, QStringList, QString, QString>
            row; // file, identifier, environment; output, error
        const QString sound = u"Verified com.example.app, version 2.5\n"_s;
        row("sound, no display, no known platform", u"app.ipa"_s, kID, kNoPlatform, sound, {});
        row("Cyrillic, brackets, stars in the C locale", u"Приложение [1]*?.ipa"_s, kID, {u"LC_ALL=C"_s},
            sound, {});
        row("a dash in front", u"-t.ipa"_s, kID, {}, sound, {});
        row("another app", u"app.ipa"_s, u"com.example.App"_s, {}, {},
            u"Получен IPA другого приложения. Файл не принят.\n"_s);
        row("broken", u"broken"_s, kID, {}, {}, u"IPA повреждён или не является ZIP-архивом.\n"_s);
    }

    void verifies()
    {
        const auto &[file, id, environment, out, err] =
            Row<QString, QString, QStringList, QString, QString>();
        const Ended ended = run({u"--verify-ipa"_s, file, id}, environment);
        QCOMPARE(ended.out, out);
        QCOMPARE(ended.err, err);
        QCOMPARE(ended.code, out.isEmpty() ? 1 : 0);
    }

    void tellsLostOutput_data()
    {
        const Rows<QStringList, QString, int> row; // arguments, redirection of a shell; status
        const QStringList verify{u"--verify-ipa"_s, u"app.ipa"_s, kID};
        row("verified, no room", verify, u">/dev/full"_s, 1);
        row("tested itself, no room", {u"--self-test"_s}, u">/dev/full"_s, 2);
        row("verified, nowhere to print", verify, u"<&- >&-"_s, 1);
        row("tested itself, nowhere to print", {u"--self-test"_s}, u">&-"_s, 2);
        row("verified, no other stream", verify, u"<&- 2>&-"_s, 0);
    }

    void tellsLostOutput()
    {
        const auto &[arguments, redirection, code] = Row<QStringList, QString, int>();
        const Ended ended = run(arguments, {}, redirection);
        QCOMPARE(ended.code, code);
        QCOMPARE(ended.out.startsWith(u"Verified"), code == 0);
        QCOMPARE(ended.err.startsWith(u"Не удалось вывести результат: "), code != 0);
    }

    // That the window was asked for shows in what is said when there is nowhere to open it. Neither capitals
    // nor two or four words to verify are a mode.
    void failsWithoutADisplay()
    {
        for (const QStringList &arguments : {QStringList(),
                                             {u"--SELF-TEST"_s},
                                             {u"--verify-ipa"_s, u"app.ipa"_s},
                                             {u"--verify-ipa"_s, u"app.ipa"_s, kID, u"more"_s}}) {
            const Ended ended = run(arguments, {u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s, u"WAYLAND_SOCKET"_s,
                                                u"QT_QPA_PLATFORM=xcb"_s});
            QCOMPARE(ended.code, 1);
            QCOMPARE(ended.out, QString());
            QVERIFY2(ended.err.startsWith(u"Zarvo: ") && ended.err.contains(u"графическ"),
                     qPrintable(ended.err));
            QVERIFY2(ended.err.contains(u"connect to display"),
                     qPrintable(ended.err)); // Qt's reason
        }
    }

private:
    /// Runs the program in the folder of the archives.
    Ended run(const QStringList &arguments, const QStringList &environment,
              const QString &redirection = {}) const
    {
        QProcess program;
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        for (const QString &variable : environment) {
            const QString name = variable.section(u'=', 0, 0);
            variable.contains(u'=') ? variables.insert(name, variable.section(u'=', 1))
                                    : variables.remove(name);
        }
        program.setProcessEnvironment(variables);
        program.setWorkingDirectory(m_folder.path());
        program.start(u"/bin/sh"_s, QStringList{u"-c"_s, u"exec \"$0\" \"$@\" "_s + redirection,
                                                QString::fromLocal8Bit(ZARVO_EXECUTABLE)} +
                                        arguments);
        const bool isWell = program.waitForFinished(kLimit) && program.exitStatus() == QProcess::NormalExit;
        return {isWell ? program.exitCode() : -1, QString::fromUtf8(program.readAllStandardOutput()),
                QString::fromUtf8(program.readAllStandardError())};
    }

    QTemporaryDir m_folder;
    TemporaryTmpdir m_tmpdir;
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
