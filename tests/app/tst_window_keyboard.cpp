// Every flow of the program from its start to its end, with the keyboard alone: keys go to whatever window
// has the focus, and a control is reached with Tab.
#include "app/window_fixture.h"
#include "support/rows.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kLookAgain = 10ms;
constexpr auto kLong = std::chrono::milliseconds(3 * kPatience);
constexpr int kMostTabs = 40; // more than any window has stops

/// One thing that the user does or waits for; false: not possible yet, to be tried again.
using Step = std::function<bool(Program &)>;
using Steps = QList<Step>;

/// None while the focus is on its way, as it is when a window comes or goes.
QWindow *focusedWindow(const Program &program)
{
    QWidget *sheet = program.alert();
    QWindow *focused = QGuiApplication::focusWindow();
    if (focused && !(sheet && focused == program.window()->windowHandle()))
        return focused;
    (sheet ? sheet : program.window())->activateWindow(); // what a desktop does
    return nullptr;
}

bool isCalled(const QWidget *widget, const QString &name)
{
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    return widget && (widget->objectName() == name || (button && button->text() == name));
}

Step key(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
{
    return [=](Program &program) {
        QWindow *window = focusedWindow(program);
        if (window)
            QTest::keyClick(window, key, modifiers);
        return window != nullptr;
    };
}

/// Goes to the control of this name, or to the button that reads so.
Step to(const QString &name)
{
    return [=](Program &program) {
        QWindow *window = focusedWindow(program);
        const QWidget *active = QApplication::activeWindow();
        const auto all = active ? active->findChildren<QWidget *>() : QWidgetList();
        const bool isThere = std::any_of(all.begin(), all.end(), [&](const QWidget *widget) {
            return isCalled(widget, name) && widget->isVisible() && widget->isEnabled();
        });
        for (int i = 0; window && isThere && i < kMostTabs; ++i) {
            if (isCalled(QApplication::focusWidget(), name))
                return true;
            QTest::keyClick(window, Qt::Key_Tab);
        }
        return false;
    };
}

Steps press(const QString &button)
{
    return {to(button), key(Qt::Key_Space)};
}

Step types(const std::function<QString(Program &)> &text)
{
    return [=](Program &program) {
        const QString letters = text(program);
        for (const QChar letter : letters)
            QTest::sendKeyEvent(QTest::Click, QApplication::focusWidget(), Qt::Key_unknown, QString(letter),
                                Qt::NoModifier);
        return true;
    };
}

Step types(const QString &text)
{
    return types([text](Program &) { return text; });
}

Steps typesFile(const std::function<QString(Program &)> &path)
{
    return {to(u"fileNameEdit"_s), key(Qt::Key_A, Qt::ControlModifier), types(path), key(Qt::Key_Return)};
}

Step sees(const QString &status)
{
    return [status](Program &program) { return program.status() == status && !program.isBusy(); };
}

Step opens(const QString &title)
{
    return [title](Program &) {
        return QApplication::activeWindow() && QApplication::activeWindow()->windowTitle() == title;
    };
}

Steps choosesPhone()
{
    return {to(u"phonePicker"_s),
            [](Program &program) { return program.phonesListed().size() == 2 && !program.isBusy(); },
            key(Qt::Key_Down),
            key(Qt::Key_End),
            key(Qt::Key_Return),
            [](Program &program) { return !program.namesListed().isEmpty() && !program.isBusy(); }};
}

Steps findsApp()
{
    return {key(Qt::Key_F, Qt::ControlModifier), types(u"карты"_s), to(u"table"_s), key(Qt::Key_Space),
            [](Program &program) { return program.text("ownerLabel").contains(u"Карты"); }};
}

const auto kDestination = [](Program &program) { return program.destination.path(); };

} // namespace

class WindowKeyboardTest : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void reachesTheEnd_data();
    void reachesTheEnd();
    void namesWhatTakesTheFocus_data();
    void namesWhatTakesTheFocus();

private:
    void walk(const Steps &steps);
    void goOn();

    OpenedFiles m_opened;
    Steps m_steps;
    qsizetype m_next = 0;
    bool m_isInStep = false;
    QWidget *m_modalAtStep = nullptr;
};

void WindowKeyboardTest::walk(const Steps &steps)
{
    m_steps = steps;
    m_next = 0;
    goOn();
    const bool isThrough = QTest::qWaitFor([this] { return m_next == m_steps.size(); }, kPatience);
    const qsizetype reached = std::exchange(m_next, m_steps.size()); // no step comes after a failure
    QVERIFY2(isThrough,
             qPrintable(u"stuck at step %1 of %2: %3"_s.arg(reached).arg(m_steps.size()).arg(m->status())));
}

// A step may open a chooser that returns only when later steps have answered it.
void WindowKeyboardTest::goOn()
{
    if (m_next == m_steps.size())
        return;
    QTimer::singleShot(kLookAgain, this, &WindowKeyboardTest::goOn);
    // A key that is played lets events through, this timer's too: the next step must not come before it has
    // done its work, unless that was to open a chooser.
    QWidget *modal = QApplication::activeModalWidget();
    if (m_isInStep && (modal == m_modalAtStep || !qobject_cast<QFileDialog *>(modal)))
        return;
    const bool wasInStep = std::exchange(m_isInStep, true);
    QWidget *formerModal = std::exchange(m_modalAtStep, modal);
    const Step step = m_steps[m_next++];
    if (!step(*m))
        --m_next;
    m_isInStep = wasInStep;
    m_modalAtStep = formerModal;
}

void WindowKeyboardTest::reachesTheEnd_data()
{
    const Rows<Steps, Rules, Rules> row; // what is done, and how the tools of the store and the phone answer
    const Steps choosesIPA = Steps{key(Qt::Key_O, Qt::ControlModifier)} + typesFile(&Program::notesIPA);
    row("finds an app and downloads it, whatever its version",
        findsApp() + press(u"exactVersion"_s) + press(u"downloadButton"_s) + typesFile(kDestination) +
            Steps{[](Program &program) { return program.saved() == QStringList{u"Карты-1.5.ipa"_s}; }},
        {}, {});
    row("downloads all", press(u"allButton"_s) + typesFile(kDestination) + Steps{[](Program &program) {
                             return program.saved().size() == 1 && !program.isBusy() &&
                                    program.status().contains(u"2");
                         }},
        {}, {});
    row("signs in",
        press(u"login"_s) + Steps{to(u"account"_s), key(Qt::Key_A, Qt::ControlModifier),
                                  types(u"owner@example.com"_s), to(u"password"_s),
                                  types(u"Correct horse 7"_s), key(Qt::Key_Return), to(u"code"_s),
                                  types(u"123456"_s), key(Qt::Key_Return), sees(u"Вход подтверждён."_s)},
        [](Scenario &tool) {
            tool.when({u"auth", u"login"}).asks(u"enter Apple ID (email address or phone number): ");
            tool.asks(u"enter password: ", Scenario::Typing::Raw).asks(u"enter 2FA code: ");
            tool.prints(uR"({"success":true})");
        },
        {});
    row("gives the sign-in up",
        press(u"login"_s) + Steps{to(u"account"_s), key(Qt::Key_Escape), to(u"login"_s)}, {}, {});
    const QString apps = uR"({"apps":[{"id":"com.example.notes","name":"заметки","version":"%1"}]})"_s;
    row("chooses an IPA and installs it",
        choosesIPA + press(u"installButton"_s) +
            Steps{to(u"Установить"_s), key(Qt::Key_Return),
                  sees(u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться Apple "
                       u"Account "
                       "владельца лицензии."_s)},
        {}, [apps](Scenario &tool) {
            tool.when({u"install"}).prints(u"{\"success\":true}");
            tool.when({u"apps"}).times(1).prints(apps.arg(u"2.0"));
            tool.when({u"apps"}).prints(apps.arg(u"2.1"));
        });
    row("reads the instructions, and finds the file",
        Steps{key(Qt::Key_F1)} + choosesIPA + press(u"reveal"_s) + Steps{[this](Program &program) {
            return m_opened.paths ==
                   QStringList{program.tools.filePath(u"README.html"_s), program.tools.path()};
        }},
        {}, {});
    row("reads about the phone",
        press(u"infoButton"_s) +
            Steps{opens(u"Сведения об iPhone"_s), key(Qt::Key_Escape), to(u"infoButton"_s)},
        {}, {});
    row("forgets the phone",
        press(u"showHistory"_s) + press(u"forgetDevice"_s) +
            Steps{[](Program &program) { return program.namesListed().isEmpty(); }, key(Qt::Key_Escape),
                  to(u"showHistory"_s)},
        {}, {});
    row("cancels what takes too long",
        press(u"checkAccount"_s) + press(u"cancelButton"_s) + Steps{sees(u"Операция отменена."_s)},
        [](Scenario &tool) {
            tool.when({u"auth", u"info"}).times(1).prints(uR"({"success":true})");
            tool.when({u"auth", u"info"}).sleeps(kLong);
        },
        {});
    row("copies what went wrong",
        press(u"reloadApps"_s) + press(u"checkAccount"_s) + press(u"Скопировать ошибку"_s) +
            Steps{[](Program &) {
                return QApplication::clipboard()->text().startsWith(u"Вход не подтверждён.");
            }},
        [](Scenario &tool) {
            tool.when({u"auth", u"info"}).prints(u"{}");
        },
        {});
}

void WindowKeyboardTest::reachesTheEnd()
{
    const auto &[steps, store, device] = Row<Steps, Rules, Rules>();
    m->tools.touch(u"README.html"_s);
    m_opened.paths.clear();
    m->playStore(store);
    m->playDevice(device);
    QVERIFY(m->start());
    walk(choosesPhone() + steps);
}

void WindowKeyboardTest::namesWhatTakesTheFocus_data()
{
    const Rows<Steps, QString> row;
    row("main window", findsApp(), u"Zarvo"_s);
    row("sign-in", press(u"login"_s), u"Вход в Apple Account"_s);
    row("about the phone", press(u"infoButton"_s), u"Сведения об iPhone"_s);
    row("history", press(u"showHistory"_s), u"Ранее подключённые устройства"_s);
}

// As a screen reader meets it, down from the window in the tree.
void WindowKeyboardTest::namesWhatTakesTheFocus()
{
    const auto &[steps, title] = Row<Steps, QString>();
    QVERIFY(m->start());
    walk(choosesPhone() + steps + Steps{opens(title)});
    QList<QAccessibleInterface *> open{QAccessible::queryAccessibleInterface(QApplication::activeWindow())};
    QCOMPARE(open.first()->text(QAccessible::Name), title);
    const QAccessible::Role role = open.first()->role();
    QVERIFY(role == QAccessible::Window || role == QAccessible::Dialog);
    int stops = 0;
    while (!open.isEmpty()) {
        QAccessibleInterface *at = open.takeLast();
        if (at->state().invisible)
            continue;
        const auto *widget = qobject_cast<QWidget *>(at->object());
        if (widget && widget->focusPolicy() & Qt::TabFocus && at->state().focusable) {
            ++stops;
            QVERIFY2(!at->text(QAccessible::Name).isEmpty(), widget->metaObject()->className());
        }
        for (int i = 0; at->role() != QAccessible::Table && i < at->childCount(); ++i)
            open.append(at->child(i));
    }
    QVERIFY(stops > 0);
}

QTEST_MAIN(WindowKeyboardTest)
#include "tst_window_keyboard.moc"
