// Files that come from outside: dragged onto the window, or named on the command line.
#include "app/window_fixture.h"
#include "support/rows.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

const QString kNone = u"IPA не выбран"_s;

} // namespace

class WindowFilesTest : public ProgramTest
{
    Q_OBJECT

private:
    /// Drags the names, of the files beside the tools, to the middle of the view and drops them there; gives
    /// what becomes of them for the program that they come from.
    Qt::DropAction drop(const QStringList &names, const QWidget *onto, Qt::DropActions possible)
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
    void makeFiles() const
    {
        for (const char *name : {"picture.png", "UPPER.IPA", "broken.ipa"})
            m->tools.touch(QString::fromLatin1(name));
        QVERIFY(QDir().mkpath(m->tools.filePath(u"folder.ipa"_s)));
    }

private Q_SLOTS:
    void takesDroppedIPAsOnly_data()
    {
        const Rows<QStringList, QByteArray, Qt::DropActions, QString, Qt::DropAction>
            row; // files, where, possible
        const Qt::DropActions any = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
        const QStringList notes{u"notes.ipa"_s};
        row("on the table", notes, "table", any, u"notes.ipa"_s, Qt::CopyAction);
        row("on a field", notes, "search", any, u"notes.ipa"_s, Qt::CopyAction);
        row("in capitals", {u"UPPER.IPA"_s}, "statusLabel", any, u"UPPER.IPA"_s, Qt::CopyAction);
        row("one that can only be linked", notes, "statusLabel", Qt::LinkAction, u"notes.ipa"_s,
            Qt::LinkAction);
        const auto refused = [&](const char *name, const QStringList &files, Qt::DropActions possible) {
            row(name, files, "search", possible, kNone, Qt::IgnoreAction);
        };
        refused("one that can only be moved stays", notes, Qt::MoveAction);
        refused("a picture does nothing", {u"picture.png"_s}, any);
        refused("two IPAs", {u"notes.ipa"_s, u"maps.ipa"_s}, any);
        refused("a folder", {u"folder.ipa"_s}, any);
        refused("a file that is gone", {u"gone.ipa"_s}, any);
        refused("an address in the net", {u"https://example.org/app.ipa"_s}, any);
    }

    void takesDroppedIPAsOnly()
    {
        const auto &[names, onto, possible, chosen, action] =
            Row<QStringList, QByteArray, Qt::DropActions, QString, Qt::DropAction>();
        makeFiles();
        QVERIFY(m->startWithApps());
        const auto *place = m->find<QWidget>(onto.constData());
        m->storeSaysLater({u"auth"}, u"{\"success\":true}");
        m->press("checkAccount");
        QCOMPARE(drop(names, place, possible), Qt::IgnoreAction); // not during a job
        QCOMPARE(m->text("ipaLabel"), kNone);
        m->go();
        EVENTUALLY(!m->isBusy());
        QCOMPARE(drop(names, place, possible), action);
        QCOMPARE(m->text("ipaLabel"), chosen);
        QCOMPARE(m->find("installButton")->isEnabled(), chosen != kNone);
        QCOMPARE(m->find<QLineEdit>("search")->text(), QString());
    }

    void choosesExistingIPAsOnly_data()
    {
        const Rows<QStringList, QString> row; // the arguments, what is chosen
        row("nothing given", {}, kNone);
        row("an IPA", {u"notes.ipa"_s}, u"notes.ipa"_s);
        row("in capitals, with an option of the toolkit", {u"-style"_s, u"fusion"_s, u"UPPER.IPA"_s},
            u"UPPER.IPA"_s);
        row("damaged: found out when it is installed", {u"broken.ipa"_s}, u"broken.ipa"_s);
        row("a file that is gone", {u"gone.ipa"_s}, kNone);
        row("a picture", {u"picture.png"_s}, kNone);
        row("a folder", {u"folder.ipa"_s}, kNone);
        row("a check without its identifier", {u"--verify-ipa"_s, u"notes.ipa"_s}, kNone);
        row("two IPAs", {u"notes.ipa"_s, u"maps.ipa"_s}, kNone);
    }

    void choosesExistingIPAsOnly()
    {
        const auto &[arguments, chosen] = Row<QStringList, QString>();
        makeFiles();
        QProcess program;
        program.setWorkingDirectory(m->tools.path());
        program.start(QString::fromLocal8Bit(ZARVO_PILOT),
                      QStringList{m->tools.path(), m->destination.path(), u"show"_s} + arguments);
        QVERIFY(program.waitForFinished(kPatience));
        QCOMPARE(QString::fromUtf8(program.readAllStandardOutput()).trimmed(), chosen);
        QCOMPARE(program.exitCode(), 0);
    }
};

QTEST_MAIN(WindowFilesTest)
#include "tst_window_files.moc"
