// Files that come from outside: dragged onto the window, or named on the command line.
#include "app/window_fixture.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QProcess>
#include <QUrl>

#include <optional>

using namespace Qt::StringLiterals;

class WindowFilesTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup() { m.reset(); }

    void takesDroppedIPAsOnly_data();
    void takesDroppedIPAsOnly();
    void refusesDropsDuringAJob();
    void choosesExistingIPAsOnly_data();
    void choosesExistingIPAsOnly();

private:
    /// Drags the names, of the files beside the tools, to the middle of the view and drops them there; gives
    /// what becomes of them for the program that they come from.
    Qt::DropAction drop(const QStringList &names, const QWidget *onto, Qt::DropActions possible);
    void makeFiles() const
    {
        for (const char *name : {"picture.png", "UPPER.IPA", "broken.ipa"})
            m->tools.touch(QString::fromLatin1(name));
        QVERIFY(QDir().mkpath(m->tools.filePath(u"folder.ipa"_s)));
    }

    std::optional<Program> m;
};

Qt::DropAction WindowFilesTest::drop(const QStringList &names, const QWidget *onto, Qt::DropActions possible)
{
    QList<QUrl> urls;
    for (const QString &name : names)
        urls.append(name.contains(u':') ? QUrl(name) : QUrl::fromLocalFile(m->tools.filePath(name)));
    QMimeData data;
    data.setUrls(urls);
    data.setText(urls.first().toString()); // as file managers do
    const QPoint place = onto->mapTo(m->window(), onto->rect().center());
    const Qt::MouseButtons button = Qt::LeftButton;
    QWindow *window = m->window()->windowHandle();
    QDragEnterEvent enter(place, possible, &data, button, {});
    QCoreApplication::sendEvent(window, &enter);
    QDragMoveEvent move(place, possible, &data, button, {});
    move.setDropAction(enter.dropAction()); // as the toolkit's own drag goes on
    move.setAccepted(enter.isAccepted());
    QCoreApplication::sendEvent(window, &move);
    if (!move.isAccepted()) {
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(window, &leave);
        return Qt::IgnoreAction;
    }
    QDropEvent drop(place, possible, &data, button, {});
    QCoreApplication::sendEvent(window, &drop);
    return drop.isAccepted() ? drop.dropAction() : Qt::IgnoreAction;
}

void WindowFilesTest::takesDroppedIPAsOnly_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QString>("onto");
    QTest::addColumn<Qt::DropActions>("possible");
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<Qt::DropAction>("action");
    const auto row = [](const char *name, const QStringList &names, const char *onto,
                        Qt::DropActions possible, const char *chosen, Qt::DropAction action) {
        QTest::newRow(name) << names << QString::fromLatin1(onto) << possible << QString::fromUtf8(chosen)
                            << action;
    };
    const char *none = "IPA не выбран";
    const Qt::DropActions any = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
    row("an IPA is chosen", {u"notes.ipa"_s}, "statusLabel", any, "notes.ipa", Qt::CopyAction);
    row("on the table", {u"notes.ipa"_s}, "table", any, "notes.ipa", Qt::CopyAction);
    row("on a field", {u"notes.ipa"_s}, "search", any, "notes.ipa", Qt::CopyAction);
    row("in capitals", {u"UPPER.IPA"_s}, "statusLabel", any, "UPPER.IPA", Qt::CopyAction);
    row("one that can only be linked", {u"notes.ipa"_s}, "statusLabel", Qt::LinkAction, "notes.ipa",
        Qt::LinkAction);
    row("one that can only be moved stays", {u"notes.ipa"_s}, "statusLabel", Qt::MoveAction, none,
        Qt::IgnoreAction);
    row("a picture does nothing", {u"picture.png"_s}, "statusLabel", any, none, Qt::IgnoreAction);
    row("nor does it on a field", {u"picture.png"_s}, "search", any, none, Qt::IgnoreAction);
    row("two IPAs", {u"notes.ipa"_s, u"maps.ipa"_s}, "statusLabel", any, none, Qt::IgnoreAction);
    row("a folder", {u"folder.ipa"_s}, "statusLabel", any, none, Qt::IgnoreAction);
    row("a file that is gone", {u"gone.ipa"_s}, "statusLabel", any, none, Qt::IgnoreAction);
    row("an address in the net", {u"https://example.org/app.ipa"_s}, "statusLabel", any, none,
        Qt::IgnoreAction);
}

void WindowFilesTest::takesDroppedIPAsOnly()
{
    QFETCH(const QStringList, names);
    QFETCH(const QString, onto);
    QFETCH(const Qt::DropActions, possible);
    makeFiles();
    QVERIFY(m->startWithApps());
    QTEST(drop(names, m->find<QWidget>(onto.toLatin1().constData()), possible), "action");
    QTEST(m->text("ipaLabel"), "chosen");
    QCOMPARE(m->find("installButton")->isEnabled(), m->text("ipaLabel") != u"IPA не выбран");
    QCOMPARE(m->find<QLineEdit>("search")->text(), QString());
}

void WindowFilesTest::refusesDropsDuringAJob()
{
    QVERIFY(m->startWithApps());
    m->playStore([&](Scenario &tool) { tool.when({u"auth"}).awaits(m->tools.filePath(u"go"_s)); });
    m->press("checkAccount");
    const auto *place = m->find<QWidget>("statusLabel");
    QCOMPARE(drop({u"notes.ipa"_s}, place, Qt::CopyAction), Qt::IgnoreAction);
    QCOMPARE(m->text("ipaLabel"), u"IPA не выбран"_s);
    m->tools.touch(u"go"_s);
    EVENTUALLY(!m->isBusy());
    QCOMPARE(drop({u"notes.ipa"_s}, place, Qt::CopyAction), Qt::CopyAction);
}

void WindowFilesTest::choosesExistingIPAsOnly_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("chosen");
    const QString none = u"IPA не выбран"_s;
    QTest::newRow("nothing given") << QStringList() << none;
    QTest::newRow("an IPA") << QStringList{u"notes.ipa"_s} << u"notes.ipa"_s;
    QTest::newRow("in capitals, with an option of the toolkit")
        << QStringList{u"-style"_s, u"fusion"_s, u"UPPER.IPA"_s} << u"UPPER.IPA"_s;
    QTest::newRow("damaged: found out when it is installed")
        << QStringList{u"broken.ipa"_s} << u"broken.ipa"_s;
    QTest::newRow("a file that is gone") << QStringList{u"gone.ipa"_s} << none;
    QTest::newRow("a picture") << QStringList{u"picture.png"_s} << none;
    QTest::newRow("a folder") << QStringList{u"folder.ipa"_s} << none;
    QTest::newRow("a check without its identifier") << QStringList{u"--verify-ipa"_s, u"notes.ipa"_s} << none;
    QTest::newRow("two IPAs") << QStringList{u"notes.ipa"_s, u"maps.ipa"_s} << none;
}

void WindowFilesTest::choosesExistingIPAsOnly()
{
    QFETCH(const QStringList, arguments);
    makeFiles();
    QProcess program;
    program.setWorkingDirectory(m->tools.path());
    program.start(QString::fromLocal8Bit(ZARVO_PILOT),
                  QStringList{m->tools.path(), m->destination.path(), u"show"_s} + arguments);
    QVERIFY(program.waitForFinished(kPatience));
    QTEST(QString::fromUtf8(program.readAllStandardOutput()).trimmed(), "chosen");
    QCOMPARE(program.exitCode(), 0);
}

QTEST_MAIN(WindowFilesTest)
#include "tst_window_files.moc"
