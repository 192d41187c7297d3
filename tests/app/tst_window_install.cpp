// IPAs for installing: chosen, dragged onto the window, named on the command line; and the installing.
#include "app/window_fixture.h"
#include "support/rows.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QFile>
#include <QMimeData>
#include <QPointer>
#include <QProcess>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

const QString kNone = u"IPA не выбран"_s;
const QString kDone = u"{\"success\":true}"_s;
constexpr QStringView kConfirmed =
    u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться "
    "Apple Account владельца лицензии.";
/// Two entries of one app, one of them in the IPA's version, and not in the order of names.
constexpr QStringView kInstalled = uR"({"apps":[{"id":"com.example.notes","name":"заметки","version":"2.0"},)"
                                   uR"({"id":"com.example.notes","name":"заметки","version":"2.1"},)"
                                   uR"({"id":"com.example.other","name":"Агент","version":"1"}]})";

} // namespace

class WindowInstallTest : public ProgramTest
{
    Q_OBJECT

private:
    QList<QStringList> newCalls() const { return m->deviceCalls().sliced(m_known); }
    bool chooseBoth()
    {
        const bool both = m->startWithApps() && m->chooseIPA(m->notesIPA);
        m_known = m->deviceCalls().size();
        return both;
    }

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
        QWindow *window = m->window()->windowHandle();
        QDragEnterEvent enter(place, possible, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(window, &enter);
        QDragMoveEvent move(place, possible, &data, Qt::LeftButton, {});
        move.setDropAction(enter.dropAction()); // as Qt's own drag goes on
        move.setAccepted(enter.isAccepted());
        QCoreApplication::sendEvent(window, &move);
        QDragLeaveEvent leave;
        QDropEvent drop(place, possible, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(window, move.isAccepted() ? static_cast<QEvent *>(&drop) : &leave);
        return move.isAccepted() && drop.isAccepted() ? drop.dropAction() : Qt::IgnoreAction;
    }
    void makeFiles() const
    {
        for (const char *name : {"picture.png", "UPPER.IPA"})
            m->tools.touch(QString::fromLatin1(name));
        QVERIFY(QDir().mkpath(m->tools.filePath(u"folder.ipa"_s)));
    }

    qsizetype m_known = 0;

private Q_SLOTS:
    void installsAndReadsAgain()
    {
        QVERIFY(chooseBoth());
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
        m->playDevice([&](Scenario &tool) {
            tool.when({u"install"}).awaits(m->tools.filePath(u"go"_s)).prints(kDone);
            tool.when({u"apps"}).prints(kInstalled);
        });
        m->press("installButton");
        QCOMPARE(m->alertTexts(), (QStringList{u"Установить IPA на выбранный iPhone?"_s,
                                               u"notes.ipa\nТелефон · iOS 17.4\nУстановка может заменить "
                                               "существующую версию. iOS проверит подпись и лицензию."_s}));
        QVERIFY(!m->isBusy());
        QVERIFY(m->answerAlert(u"Установить"_s));
        QCOMPARE(m->status(), u"Проверка IPA…"_s);
        EVENTUALLY_EQUAL(m->status(), u"Передача IPA и установка на iPhone…"_s);
        m->go();
        EVENTUALLY(!m->isBusy());
        QCOMPARE(m->status(), kConfirmed);
        QCOMPARE(m->namesListed(), (QStringList{u"заметки"_s, u"заметки"_s, u"Агент"_s}));
        QCOMPARE(newCalls(),
                 (QList<QStringList>{{u"install"_s, u"PHONE-1"_s, m->notesIPA}, {u"apps"_s, u"PHONE-1"_s}}));
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
    }

    void explainsFailures_data()
    {
        // What the tool says to the installing and how it ends, the version that is there; the explanation.
        const Rows<QString, int, QString, QString, int> row; // how many calls
        const QString unconfirmed =
            u"iOS сообщила об установке, но повторное чтение не подтвердило нужную версию."_s;
        const QString full = u"На телефоне не хватает места."_s;
        row("said to be done, but the old version is there", kDone, 0, u"2.0"_s, unconfirmed, 2);
        row("said to be done, but a version that looks the same", kDone, 0, u"2.1.0"_s, unconfirmed, 2);
        row("said to be done, but the apps cannot be read", kDone, 0, {}, u"Телефон заблокирован."_s, 2);
        row("said to be done, but ended badly", kDone, 1, u"2.1"_s, u"iOS не подтвердила установку."_s, 1);
        row("refused", u"{\"success\":false,\"error\":\"%1\"}"_s.arg(full), 0, u"2.1"_s, full, 1);
        row("a damaged archive never reaches the phone", kDone, 0, u"2.1"_s,
            u"IPA повреждён или не является ZIP-архивом."_s, 0);
    }

    void explainsFailures()
    {
        const auto &[said, code, version, sentence, calls] = Row<QString, int, QString, QString, int>();
        QVERIFY(chooseBoth());
        QVERIFY(calls > 0 || QFile::resize(m->notesIPA, 100));
        const QStringList listed = m->namesListed();
        const QString apps =
            uR"({"apps":[{"id":"com.example.notes","version":"%1"},{"id":"com.example.other","version":"2.1"}]})"_s;
        m->playDevice([&, answer = said, status = code,
                       read = version.isEmpty() ? uR"({"error":"%1"})"_s.arg(sentence)
                                                : apps.arg(version)](Scenario &tool) {
            tool.when({u"install"}).prints(answer).exits(status);
            tool.when({u"apps"}).prints(read);
        });
        m->press("installButton");
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY_EQUAL(m->alertTexts(), (QStringList{u"Операция не выполнена"_s, sentence}));
        QCOMPARE(newCalls().size(), calls);
        QCOMPARE(m->namesListed(), listed);
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s);
    }

    // The phone is unplugged, and another one comes, while the question is open.
    void installsWhatWasConfirmed()
    {
        QVERIFY(chooseBoth());
        m->press("installButton");
        m->playDevice([](Scenario &tool) {
            tool.when({u"devices"}).prints(uR"({"devices":[{"id":"PHONE-2","name":"Другой","ios":"16.1"}]})");
            tool.when({u"install"}).prints(kDone);
            tool.when({u"apps"}).prints(kInstalled);
        });
        m->ask("refresh");
        EVENTUALLY_EQUAL(m->phonesListed().value(1), u"Другой · iOS 16.1"_s);
        QCOMPARE(m->namesListed(), QStringList());
        QVERIFY(m->alertTexts().value(1).contains(u"Телефон · iOS 17.4"));
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY_EQUAL(m->status(), kConfirmed);
        EVENTUALLY(!m->isBusy());
        QCOMPARE(newCalls().value(0), (QStringList{u"install"_s, u"PHONE-1"_s, m->notesIPA}));
        QCOMPARE(m->namesListed(), QStringList()); // the list of a phone that is not chosen any more
    }

    void needsFileAndPhoneAndConsent()
    {
        QVERIFY(m->startWithApps());
        QVERIFY(!m->find("installButton")->isEnabled());
        QVERIFY(m->chooseIPA(m->notesIPA) && m->chooseIPA(m->tools.toolPath(u"ipatool"_s)));
        QCOMPARE(m->text("ipaLabel"), u"notes.ipa"_s); // only an IPA can be chosen
        const QString before = u"Файл «ipatool» не является IPA."_s;
        m->press("installButton");
        QVERIFY(m->answerAlert(u"Отмена"_s));
        m->press("installButton");
        QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, u"\r"_s, true);
        QCoreApplication::sendEvent(m->alert(), &held); // is no answer
        QTest::keyClick(m->alert(), Qt::Key_Escape);
        EVENTUALLY(!m->alert());
        QCOMPARE(m->status(), before);
        m->choosePhone(Qt::Key_Home);
        QVERIFY(!m->find("installButton")->isEnabled());
        QVERIFY(!m->deviceCalls().last().contains(u"install"_s));
    }

    // Shortcuts reach the window until the sheet over it is the active one.
    void asksOneThingAtATime()
    {
        QVERIFY(chooseBoth() && m->chooseApp(u"Карты"_s));
        m->storeSays({u"auth"}, u"{}");
        const auto opens = {"chooseIPA", "downloadButton", "allButton", "installButton", "login"};
        for (const char *first : opens) {
            m->press(first);
            QPointer<QDialog> sheet = m->alert();
            QVERIFY2(sheet, first);
            for (const char *other : opens)
                m->ask(other);
            if (qobject_cast<QFileDialog *>(sheet))
                m->ask("checkAccount"); // would fail, and say so
            QVERIFY2(!m->isBusy() && sheet == m->alert(), first);
            sheet->reject();
            EVENTUALLY(!m->alert());
        }
    }

    void survivesAChooserThatIsClosedUnderItsQuestion()
    {
        QVERIFY(m->startWithPhone());
        m->press("chooseIPA");
        auto *chooser = qobject_cast<QFileDialog *>(m->alert());
        QTimer::singleShot(0, chooser, [chooser] { // in Qt's loop
            QWidget *question = QApplication::activeModalWidget();
            QVERIFY(question != chooser);
            chooser->close();
            QTest::qWait(0);
            question->close();
        });
        auto *name = chooser->findChild<QLineEdit *>(u"fileNameEdit"_s);
        name->setText(u"none.ipa"_s);
        QTest::keyClick(name, Qt::Key_Return);
        QVERIFY(!m->alert() && m->chooseIPA(m->notesIPA));
    }

    void takesDroppedIPAsOnly_data()
    {
        // The files, where, what may become of them; what is chosen, what becomes of them.
        const Rows<QStringList, QByteArray, Qt::DropActions, QString, Qt::DropAction> row;
        const Qt::DropActions any = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
        const QStringList notes{u"notes.ipa"_s};
        row("on the table", notes, "table", any, u"notes.ipa"_s, Qt::CopyAction);
        row("in capitals, on a field", {u"UPPER.IPA"_s}, "search", any, u"UPPER.IPA"_s, Qt::CopyAction);
        row("one that can only be linked", notes, "statusLabel", Qt::LinkAction, notes[0], Qt::LinkAction);
        row("one that can only be moved", notes, "search", Qt::MoveAction, kNone, Qt::IgnoreAction);
        for (const char *names :
             {"picture.png", "notes.ipa maps.ipa", "folder.ipa", "gone.ipa", "https://example.org/app.ipa"})
            row(names, QString::fromLatin1(names).split(u' '), "search", any, kNone, Qt::IgnoreAction);
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
        QCOMPARE(m->find<QLineEdit>("search")->text(), QString());
    }

    void choosesExistingIPAsOnly_data()
    {
        const Rows<QStringList, QString> row; // the arguments, what is chosen
        row("nothing given", {}, kNone);
        row("in capitals, with an option of Qt", {u"-style"_s, u"fusion"_s, u"UPPER.IPA"_s}, u"UPPER.IPA"_s);
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

QTEST_MAIN(WindowInstallTest)
#include "tst_window_install.moc"
