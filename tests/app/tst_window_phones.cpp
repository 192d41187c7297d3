// The phone's details in windows of their own, and the history of phones.
#include "app/window_fixture.h"
#include "views/view_factories.h"

#include <QAction>
#include <QDrag>
#include <QHelpEvent>
#include <QLockFile>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QTextDocumentFragment>
#include <QToolTip>

#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>

using namespace Qt::StringLiterals;

namespace {

const QStringList kEmpty{u"История устройств пуста."_s};
const QString kHere = u"Телефон\niOS 17.4 • Подключён"_s;

QVariantMap entry(const QVariant &id, const QVariant &name, const QVariant &ios)
{
    return {{u"id"_s, id}, {u"name"_s, name}, {u"ios"_s, ios}};
}

void store(const QVariant &history)
{
    QSettings(u"Zarvo"_s, u"Zarvo"_s).setValue(u"zarvo.deviceHistory.v1"_s, history);
}

// While a test holds it, nothing gets onto the disk.
std::mutex disk;

} // namespace

// Takes the place of the C library's for this program.
extern "C" int fsync(int file)
{
    const std::lock_guard waiting(disk);
    return static_cast<int>(::syscall(SYS_fsync, file));
}

class WindowPhonesTest : public ProgramTest
{
    Q_OBJECT

private:
    QList<QWidget *> shown(const char *name) const
    {
        QList<QWidget *> windows = m->window()->findChildren<QWidget *>(QLatin1StringView(name));
        windows.removeIf([](const QWidget *window) { return window->isHidden(); });
        return windows;
    }
    template <typename View>
    QList<View *> inHistory() const
    {
        QList<View *> views = m->find<QWidget>("historyWindow")->findChildren<View *>();
        views.removeIf([](const View *view) { return !view->isVisible(); });
        return views;
    }
    /// The texts of the history window below the note.
    QStringList history() const
    {
        QStringList texts;
        const auto labels = inHistory<QLabel>();
        for (const QLabel *label : labels)
            texts << label->text();
        return texts.mid(1);
    }
    QStringList openedHistory() const
    {
        m->press("showHistory");
        const QWidget *window = shown("historyWindow").value(0);
        const bool isActive =
            QTest::qWaitFor([=] { return QApplication::activeWindow() == window; }, kPatience);
        return isActive ? history() : QStringList{u"not active"_s};
    }
    QString picked() const { return m->find<QComboBox>("phonePicker")->currentText(); }
    /// The buttons in the history window: those of the entries, then the one that clears all.
    QPushButton *button(int index) const { return inHistory<QPushButton>().value(index); }

private Q_SLOTS:
    void showsDetails()
    {
        const auto texts = [this] {
            QStringList all;
            for (const QWidget *window : shown("infoWindow"))
                all << window->findChild<QPlainTextEdit *>()->toPlainText();
            return all.join(u'|');
        };
        QVERIFY(m->startWithApps());
        m->playDevice([](Scenario &tool) {
            tool.when({u"info"}).prints(
                uR"({"details":[{"label":"Модель","value":"<b>iPhone</b>"},{"label":"Память"}]})");
            tool.when({u"battery"}).prints(uR"({"details":[{"label":"Заряд","value":80}]})");
        });
        QVERIFY(m->perform("infoButton"));
        QCOMPARE(m->status(), u"Сведения обновлены. Недоступные показатели отмечены явно."_s);
        const QString first = u"Модель\n<b>iPhone</b>\n\nПамять\n\n\nЗаряд\n80\n\n"_s;
        QCOMPARE(texts(), first);
        m->playDevice(); // without battery; each reading has its own window
        QVERIFY(m->perform("infoButton"));
        QCOMPARE(texts(), first + u"|Модель\niPhone\n\n"_s);
        m->deviceSays({u"info"}, uR"({"error":"Телефон заблокирован."})", 1);
        QVERIFY(m->perform("infoButton"));
        QCOMPARE(m->alertTexts().value(1), u"Телефон заблокирован."_s);
        QCOMPARE(shown("infoWindow").size(), 2);
    }

    // Of phones, apps, accounts and files: none breaks a line, turns it around, or takes the room of the
    // rest.
    void boundsForeignNames()
    {
        const QString name = u"%2 <b>\u202egnp.\u2066exe\u200f\\nx "_s + u"слово "_s.repeated(600);
        const auto says = [&](Scenario &tool, const QString &command, const QString &json) {
            tool.when({command}).prints(QString(json).replace(u'@', name));
        };
        m->playDevice([&](Scenario &tool) {
            says(tool, u"devices"_s, uR"({"devices":[{"id":"PHONE-1","name":"@","ios":"@"}]})"_s);
            says(tool, u"apps"_s,
                 uR"({"apps":[{"id":"a","name":"@","version":"@","licenseAccount":"@"}]})"_s);
            says(tool, u"info"_s, uR"({"details":[{"label":"@","value":"@"}]})"_s);
            says(tool, u"install"_s, uR"({"error":"@"})"_s);
        });
        m->playStore([&](Scenario &tool) { says(tool, u"auth"_s, uR"({"email":"@","success":true})"_s); });
        QVERIFY(m->startWithPhone());
        m->choosePhone();
        EVENTUALLY(!m->isBusy() && m->chooseApp(m->namesListed().value(0)));
        const QString file = m->tools.filePath(u"\u202egnp\nx слово %1.ipa"_s.arg(u"слово "_s.repeated(15)));
        QVERIFY(QFile::copy(m->notesIPA, file));
        m->app().setIPA(file);
        QVERIFY(m->perform("infoButton"));
        openedHistory();
        m->press("installButton");
        QStringList texts = Program::told();
        QVERIFY(m->answerAlert(u"Установить"_s));
        EVENTUALLY(m->alert());
        texts += Program::told();
        QVERIFY(m->answerAlert(u"Понятно"_s));
        const QRegularExpression foreign(u"[\u200e\u200f\u202a-\u202e\u2066-\u2069]|\nx|(слово ){40}"_s);
        for (const QString &text : std::as_const(texts)) {
            const bool isWhole = text == m->status() || text.endsWith(u"\n\n"_s); // or readings, which scroll
            QVERIFY2(isWhole || !foreign.match(text).hasMatch(), qPrintable(text));
        }
        QVERIFY(picked().startsWith(u"%2 <b>gnp.exe x слово"));

        m->window()->resize(1050, 900);
        auto *table = m->find<QTableView>("table");
        EVENTUALLY(table->height() > Scaled(220));
        QCOMPARE(m->window()->findChild<QScrollArea *>()->verticalScrollBar()->maximum(), 0);
        const auto tip = [](QWidget *widget, QPoint place) {
            QHelpEvent event(QEvent::ToolTip, place, widget->mapToGlobal(place));
            QApplication::sendEvent(widget, &event);
            return QTextDocumentFragment::fromHtml(QToolTip::text()).toPlainText();
        };
        const auto cell = [table](int column) {
            return table->visualRect(table->model()->index(0, column)).center();
        };
        QCOMPARE(tip(table->viewport(), cell(2)), QString()); // has room
        QCOMPARE(tip(table->viewport(), cell(0)), m->namesListed().first().simplified());
        QCOMPARE(tip(m->find<QWidget>("phonePicker"), {9, 9}), picked().simplified());
        QCOMPARE(tip(m->find<QWidget>("statusLabel"), {9, 9}), m->status().simplified());
    }

    void remembersPhones()
    {
        m->playDevice([](Scenario &tool) {
            tool.when({u"devices"})
                .prints(
                    uR"({"devices":[{"id":"P2","name":"яблоко"},{"id":"P3"},{"id":"PHONE-1","name":"Ю"}]})");
            tool.when({u"apps"}).prints(u"{}");
        });
        QVERIFY(m->start());
        EVENTUALLY_EQUAL(m->phonesListed().size(), 4);
        QCOMPARE(openedHistory(), kEmpty);
        QVERIFY(!button(0)->isEnabled()); // nothing to clear
        for (const Qt::Key key : {Qt::Key_End, Qt::Key_Up, Qt::Key_Up}) {
            m->choosePhone(key);
            EVENTUALLY(!m->isBusy());
        }
        m->playDevice(); // now one of them is there, under another name
        QVERIFY(m->restart());
        QStringList expected{u"iPhone\niOS  • Не подключён"_s, u"Ю\niOS  • Подключён"_s,
                             u"яблоко\niOS  • Не подключён"_s};
        QCOMPARE(openedHistory(), expected);
        m->choosePhone();
        expected[1] = kHere;
        QCOMPARE(history(), expected);
        EVENTUALLY(!m->isBusy());
        m->deviceSays({u"devices"}, u"{}");
        m->ask("refresh");
        expected[1] = u"Телефон\niOS 17.4 • Не подключён"_s;
        EVENTUALLY_EQUAL(history(), expected);
    }

    // Entries that are none are left out, the others keep their order.
    void survivesDamagedSettings()
    {
        const QString x = u"x"_s;
        const QVariantMap one = entry(u"2"_s, u"Б"_s, u"16"_s);
        QVariantList mixed{one, 5, x, QVariantList{1}, entry({}, x, x), entry(u""_s, x, x)};
        mixed << entry(7, x, x) << entry(x, {}, x) << entry(u"1"_s, u"А"_s, 17);
        const QStringList both{u"Б\niOS 16 • Не подключён"_s, u"А\niOS  • Не подключён"_s};
        for (const QVariant &stored : {QVariant(mixed), QVariant(one), QVariant()}) {
            m.emplace();
            store(stored);
            QFile file(Program::settingsFile());
            QVERIFY(stored.isValid() ||
                    (file.open(QIODevice::WriteOnly) && file.write("\0\xff[[[=\n@Variant(\0\0\x09"_ba) > 0));
            file.close();
            QVERIFY(m->startWithPhone());
            QCOMPARE(openedHistory(), stored == mixed ? both : kEmpty);
            m->choosePhone();
            EVENTUALLY(!m->isBusy());
            QVERIFY(m->restart()); // what is damaged does not keep the new entry from being stored
            QVERIFY(openedHistory().contains(kHere));
        }
    }

    // Another program has the lock of the settings, for which Qt would wait without end.
    void storesBehindTheWindow()
    {
        store(QVariantList{entry(u"1"_s, u"А"_s, u"1"_s)});
        QVERIFY(m->startWithPhone());
        const QByteArray before = ContentOf(Program::settingsFile());
        QLockFile taken(Program::settingsFile() + u".lock"_s);
        QVERIFY(taken.lock());
        std::unique_lock slow(disk);
        m->choosePhone();
        EVENTUALLY(!m->isBusy());
        QCOMPARE(openedHistory().size(), 2);
        button(0)->click();
        QCOMPARE(history(), QStringList{kHere});
        QCOMPARE(ContentOf(Program::settingsFile()), before);
        slow.unlock();
        QVERIFY(m->restart());
        QCOMPARE(openedHistory(), QStringList{kHere});
    }

    void forgetsAPhone()
    {
        store(QVariantList{entry(u"1"_s, u"А"_s, u"1"_s), entry(u"2"_s, u"Я"_s, u"2"_s)});
        QVERIFY(m->startWithApps());
        const QString first = u"А\niOS 1 • Не подключён"_s;
        QCOMPARE(openedHistory(), (QStringList{first, kHere, u"Я\niOS 2 • Не подключён"_s}));
        button(2)->setFocus();
        QTest::keyClick(button(2), Qt::Key_Space);
        QCOMPARE(history(), (QStringList{first, kHere}));
        QCOMPARE(m->namesListed().size(), 3); // it was not the current one
        QVERIFY(button(2)->hasFocus());       // what stands in its place now
        m->storeSaysLater({u"auth"}, u"{}");
        m->press("checkAccount");
        for (const int index : {1, 2}) {
            QTest::mouseClick(button(index), Qt::LeftButton);
            QCOMPARE(history(), (QStringList{first, kHere})); // nothing changes during a job
        }
        m->go();
        EVENTUALLY(!m->isBusy());
        QTest::mouseClick(button(1), Qt::LeftButton);
        QCOMPARE(history(), QStringList{first});
        QCOMPARE(m->namesListed(), QStringList());
        QVERIFY(m->restart());
        QCOMPARE(openedHistory(), QStringList{first});
        QTest::mouseClick(button(1), Qt::LeftButton); // clears all
        QCOMPARE(history(), kEmpty);
        QVERIFY(m->restart());
        QCOMPARE(openedHistory(), kEmpty);
    }

    // A drag is a loop of Qt's, and what it comes from may be removed meanwhile.
    void letsNothingBeDraggedAway()
    {
        QVERIFY(m->startWithApps() && m->perform("infoButton"));
        openedHistory();
        auto *details = shown("infoWindow").value(0)->findChild<QPlainTextEdit *>();
        details->selectAll();
        QLabel *line = inHistory<QLabel>().value(1);
        line->setSelection(0, static_cast<int>(line->text().size()));
        for (QWidget *view : {details->viewport(), static_cast<QWidget *>(line)}) {
            const QPoint place(25, view == line ? 8 : 30);
            QTest::mousePress(view, Qt::LeftButton, {}, place);
            const QPoint next(60, place.y());
            QMouseEvent move(QEvent::MouseMove, next, view->mapToGlobal(next), Qt::NoButton, Qt::LeftButton,
                             {});
            QCoreApplication::sendEvent(view, &move);
            QVERIFY2(!view->findChild<QDrag *>(), view->metaObject()->className());
        }
    }

    void closesWithKeys()
    {
        QVERIFY(m->startWithPhone());
        openedHistory();
        QWidget *window = shown("historyWindow").value(0);
        bool hasQuit = false;
        for (QAction *action : m->window()->findChildren<QAction *>())
            connect(action, &QAction::triggered, action,
                    [&, action] { hasQuit |= action->text() == u"Завершить Zarvo"; });
        QTest::keyClick(window, Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(hasQuit);
        QTest::keyClick(window, Qt::Key_W, Qt::ControlModifier);
        QVERIFY(window->isHidden());
    }
};

QTEST_MAIN(WindowPhonesTest)
#include "tst_window_phones.moc"
