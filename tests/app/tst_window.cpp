// The main window, and the jobs that are seen in it.
#include "app/window_fixture.h"
#include "core/shown_text.h"
#include "support/rows.h"
#include "views/spinner.h"
#include "views/view_factories.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QScrollArea>
#include <QScrollBar>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString kConnect = u"Подключите iPhone кабелем и выберите его в списке."_s;
const QString kFound = u"iPhone найден. Выберите устройство в списке выше."_s;
const QString kNotConfirmed = u"Вход не подтверждён. Выполните вход в Apple Account."_s;

} // namespace

class WindowTest : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void tabsInReadingOrder()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        QVERIFY(m->download());
        EVENTUALLY(!m->isBusy());
        QWidget *content = qobject_cast<QMainWindow *>(m->window())->centralWidget();
        const QWidget *scrolling = m->window()->findChild<FlippedView *>();
        QWidgetList expected = content->findChildren<QWidget *>();
        expected.removeIf([](const QWidget *widget) {
            return !widget->isVisible() || !widget->isEnabled() || !(widget->focusPolicy() & Qt::TabFocus);
        });
        QCOMPARE(expected.size(), 17);
        const auto place = [content, scrolling](const QWidget *widget) {
            const QPoint center = widget->mapTo(content, widget->rect().center());
            // Those of one row differ by a pixel.
            return std::tuple(!scrolling->isAncestorOf(widget), center.y() / 4, center.x());
        };
        std::sort(expected.begin(), expected.end(), [&](auto *a, auto *b) { return place(a) < place(b); });
        expected.first()->setFocus();
        for (const QWidget *next : std::as_const(expected)) {
            QCOMPARE(QApplication::focusWidget(), next);
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        QCOMPARE(QApplication::focusWidget(), expected.first());
    }

    void keepsItsSize()
    {
        QVERIFY(m->startWithPhone());
        m->window()->resize(100, 100);
        EVENTUALLY_EQUAL(m->window()->size(), QSize(850, 600));
        auto *scroll = m->window()->findChild<QScrollArea *>();
        EVENTUALLY(scroll->verticalScrollBar()->maximum() > 0);
        QCOMPARE(scroll->horizontalScrollBar()->maximum(), 0);
        // What the last action came to is in sight all the same.
        for (const char *name : {"statusLabel", "transferLabel", "cancelButton"}) {
            const auto *view = m->find<QWidget>(name);
            const QRect place(view->mapTo(m->window(), QPoint()), view->size());
            QVERIFY2(m->window()->rect().contains(place), name);
        }
        const auto *table = m->find<QTableView>("table");
        QHeaderView *header = table->horizontalHeader();
        for (const auto &[column, least] : {std::pair(0, 140), std::pair(1, 80), std::pair(2, 140)}) {
            header->resizeSection(column, 10);
            QVERIFY(header->sectionSize(column) >= Scaled(least));
        }
        QCOMPARE(header->length(), table->viewport()->width()); // the last one takes what is left
        header->resizeSection(0, 2000);
        QCOMPARE(header->sectionSize(2), Scaled(140)); // as narrow as it may be
    }

    void boundsForeignTexts()
    {
        QCOMPARE(ShownExplanation(u"a\r\nb\u2028c\td\x1b[1me\x9bz\n"_s), u"a b c d [1me z "_s);
        QCOMPARE(ShownName(u"\u202egnp\u2069.\u200fexe\u061c\r\nb"_s), u"gnp.exe b"_s); // not "exe.png"
        QCOMPARE(ShownName(QString(199, u'x') + u"😀"_s), QString(199, u'x') + u'…');    // no half of it
        QCOMPARE(ShownExplanation(u"a\n\nb\n\nc"_s), u"a\n\nb c"_s);                    // two paragraphs
        QCOMPARE(ShownExplanation(QString(100'000, u'x')), QString(2000, u'x') + u'…');

        const QString text = u"слово "_s.repeated(2000);
        const std::unique_ptr<QDialog> alert(MakeAlert(nullptr, u"Сообщение"_s, text, {{u"Понятно"_s, {}}}));
        alert->show();
        QVERIFY(alert->height() < 600);
        const auto *scroll = alert->findChild<QScrollArea *>();
        QVERIFY(scroll && scroll->verticalScrollBar()->maximum() > 0);
        QCOMPARE(scroll->findChild<QLabel *>()->text(), text);

        // A long word is broken, and is there to its end.
        const std::unique_ptr<QLabel> label(ZarvoLabel(QString(100, u'W'), false));
        const int lines = label->fontMetrics().horizontalAdvance(label->text()) / 200;
        const int line = label->fontMetrics().height();
        QVERIFY(lines > 2 && label->heightForWidth(200) >= lines * line);
        label->resize(200, label->heightForWidth(200));
        label->show();
        const auto isInked = [&] { // where the last full line is
            const QImage picture = label->grab(QRect(0, (lines - 1) * line, 200, line)).toImage();
            return picture != QPixmap::fromImage(picture).copy(0, 0, 1, 1).scaled(picture.size()).toImage();
        };
        EVENTUALLY(isInked());
    }

    void tonesPlaceholdersDown()
    {
        QVERIFY(m->start());
        for (const auto group : {QPalette::Active, QPalette::Disabled}) {
            const QColor text = QApplication::palette().color(group, QPalette::WindowText);
            const QColor shown = QApplication::palette().color(group, QPalette::PlaceholderText);
            QCOMPARE(shown.rgb(), text.rgb());
            QVERIFY(shown.alpha() < text.alpha());
        }
    }

    void editsWhatHasTheFocus()
    {
        // Selects all, copies, cuts, and pastes what that left, by key and by the menu; gives what was
        // copied.
        const auto edit = [this](QWidget *focused) {
            QStringList copied;
            focused->window()->activateWindow();
            focused->setFocus();
            if (!QTest::qWaitFor([=] { return QApplication::focusWidget() == focused; }, kPatience))
                return u"no focus"_s;
            for (const bool byKey : {true, false}) {
                QApplication::clipboard()->setText(u"-"_s);
                for (const auto title : {u"Выбрать всё", u"Копировать", u"Вырезать", u"Вставить"}) {
                    for (QAction *action : m->window()->findChildren<QAction *>()) {
                        if (action->text() == title)
                            byKey ? QTest::keySequence(focused, action->shortcut()) : action->trigger();
                    }
                }
                copied << QApplication::clipboard()->text();
            }
            return copied[0] == copied[1] ? copied[0] : copied.join(u" or "_s);
        };
        for (const bool atWork : {false, true}) {
            m.emplace();
            QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
            m->type("search", u"карты"_s);
            m->ask("showHistory");
            QVERIFY(atWork || m->perform("infoButton"));
            m->storeSaysLater({u"auth"}, u"{}");
            atWork ? m->press("checkAccount") : void();
            int tried = 0;
            for (const auto &[name, copied] :
                 {std::pair("phonePicker", u"-"_s), std::pair("refresh", u"-"_s),
                  std::pair("search", u"карты"_s), std::pair("exactVersion", u"-"_s),
                  std::pair("statusLabel", m->status()),
                  std::pair("table", u"Карты\t1.5\tcom.example.maps"_s), std::pair("cancelButton", u"-"_s)}) {
                auto *view = m->find<QWidget>(name);
                tried += view->isEnabled();
                if (view->isEnabled())
                    QCOMPARE(edit(view), copied);
            }
            QCOMPARE(tried, atWork ? 2 : 6);
            QCOMPARE(m->find<QLineEdit>("search")->text(), u"карты"_s);
            QCOMPARE(edit(m->window()->findChild<FlippedView *>()), u"-"_s);
            auto *note = m->find<QWidget>("historyWindow")->findChild<QLabel *>();
            QCOMPARE(edit(note), note->text());
            auto *details = m->find<QPlainTextEdit>("detailsText");
            QCOMPARE(details ? edit(details) : QString(), details ? details->toPlainText() : QString());
            m->go();
            EVENTUALLY(!m->isBusy());
        }
    }

    void tellsScreenReaders()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Tom & <b>Jerry</b>"_s));
        for (const char *text : {"Выбрано: Tom & <b>Jerry</b> 1", "Tom & <b>Jerry</b>", "Идентификатор"})
            QVERIFY2(Program::told().contains(QString::fromUtf8(text)), text);

        m->storeSays({u"auth"}, uR"({"error":"a & <b>b</b>"})");
        m->press("checkAccount");
        EVENTUALLY(m->alert());
        QCOMPARE(Program::told(m->alert()), (QStringList{u"Zarvo"_s, u"Операция не выполнена"_s, m->status(),
                                                         u"Понятно"_s, u"Скопировать ошибку"_s}));
        QVERIFY(m->status().endsWith(u"a & <b>b</b>"_s));
    }

    void keepsQuietAboutTheFirstCheckOnly()
    {
        for (const auto &[devices, prompt] :
             {std::pair(u"[]", kConnect), std::pair(u"[{\"id\":\"1\"},{\"id\":\"2\"}]", kFound)}) {
            m.emplace();
            m->deviceSays({u"devices"}, u"{\"devices\":%1}"_s.arg(devices));
            m->storeSays({u"auth", u"info"}, u"{}");
            QVERIFY(m->start());
            m->app().setIPA(u"/gone.ipa"_s); // as the command line does
            QVERIFY(m->tools.waitForCalls(u"devicezarvo"_s, 1));
            EVENTUALLY(!m->isBusy());
            EVENTUALLY_EQUAL(m->status(), u"Файл «gone.ipa» не найден. "_s + prompt);
            QVERIFY(!m->alert());
            QCOMPARE(m->transfer() + m->text("accountLabel"), u"Вход не подтверждён"_s);
            QVERIFY(m->perform("checkAccount"));
            QCOMPARE(m->alertTexts().value(1), kNotConfirmed);
            QApplication::clipboard()->setText(u"before"_s);
            QTest::keyClick(m->alert(), Qt::Key_Return); // not the button that copies
            EVENTUALLY(!m->alert());
            QCOMPARE(QApplication::clipboard()->text(), u"before"_s);
        }
    }

    void runsOneJobAtATime()
    {
        QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
        m->storeSaysLater({u"auth", u"info"}, u"{}");
        const qsizetype storeCalls = m->storeCalls().size();
        const QList<QStringList> deviceCalls = m->deviceCalls();
        m->press("checkAccount");
        for (const char *other : {"checkAccount", "reloadApps", "refresh"})
            m->ask(other);
        QVERIFY(m->tools.waitForCalls(u"ipatool"_s, storeCalls + 1));
        QStringList enabled;
        const auto widgets = m->window()->findChildren<QWidget *>();
        for (const QWidget *widget : widgets) {
            if (widget->isEnabled() && widget->focusPolicy() & Qt::TabFocus)
                enabled.append(widget->objectName());
        }
        QCOMPARE(enabled, QStringList{u"cancelButton"_s});
        QVERIFY(m->find<Spinner>("spinner")->isAnimating());
        QCOMPARE(m->status(), u"Проверка входа…"_s);

        m->go();
        EVENTUALLY(!m->isBusy());
        QVERIFY(!m->find<Spinner>("spinner")->isAnimating());
        QVERIFY(m->answerAlert(u"Понятно"_s));
        QCOMPARE(m->storeCalls().size(), storeCalls + 1);
        QCOMPARE(m->deviceCalls(), deviceCalls);
        QVERIFY(m->find("downloadButton")->isEnabled());
    }

    void keepsTheFocusOffCancelling()
    {
        QVERIFY(m->startWithPhone());
        m->storeSaysLater({u"auth", u"info"}, u"{}");
        QAbstractButton *check = m->find("checkAccount");
        check->setFocus();
        QTest::keyClick(check, Qt::Key_Space);
        QVERIFY(m->isBusy());
        QWidget other;
        other.show();
        for (QWidget *next : {m->window(), &other, m->window()}) {
            next->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(next));
            for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return})
                QTest::keyClick(next->windowHandle(), key);
        }
        m->go();
        EVENTUALLY(m->alert());
        QCOMPARE(m->status(), kNotConfirmed); // not cancelled
        QVERIFY(m->answerAlert(u"Понятно"_s));
        EVENTUALLY_EQUAL(QApplication::focusWidget(), check);
    }
};

QTEST_MAIN(WindowTest)
#include "tst_window.moc"
