// Every flow of the program from its start to its end, with the keyboard alone: keys go to whatever window
// has the focus, and a control is reached with Tab.
#include "app/window_fixture.h"
#include "support/rows.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMostTabs = 40; // more than any window has stops

// Walks: words with bars between them, see WindowKeyboardTest::does().
const QString kChoosePhone = u"@phonePicker|=iPhone найден|Down|End|Return|=Прочитано|"_s;
const QString kFindApp = u"Ctrl+F|'карты|@table|Space|=Выбрано: Карты|"_s;
const QString kChooseIPA = u"Ctrl+O|@fileNameEdit|Ctrl+A|'{ipa}|Return|"_s;
// Its folder, where no file manager can be asked to select it; what was saved goes before what was chosen.
const QString kShowSaved = kChooseIPA + u"@reveal|Return|~{folder}"_s;
const QString kChooseFolder = u"Return|@fileNameEdit|Ctrl+A|'{folder}|Return|"_s;

/// None while the focus is on its way, as it is when a window comes or goes.
QWindow *focusedWindow(const Program &program)
{
    QWidget *sheet = program.alert();
    QWindow *focused = QGuiApplication::focusWindow();
    if (focused && focused->isVisible() && !(sheet && focused == program.window()->windowHandle()))
        return focused;
    (sheet ? sheet : program.window())->activateWindow(); // what a desktop does
    return nullptr;
}

bool isCalled(const QWidget *widget, const QString &name)
{
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    return widget && (widget->objectName() == name || (button && button->text() == name));
}

bool goTo(const QString &name, QWindow *window)
{
    const QWidget *active = QApplication::activeWindow();
    const auto all = active ? active->findChildren<QWidget *>() : QWidgetList();
    const bool isThere = std::any_of(all.begin(), all.end(), [&](const QWidget *widget) {
        return isCalled(widget, name) && widget->isVisible() && widget->isEnabled();
    });
    for (int i = 0; isThere && i < kMostTabs; ++i) {
        if (isCalled(QApplication::focusWidget(), name))
            return true;
        QTest::keyClick(window, Qt::Key_Tab);
    }
    return false;
}

/// Whether a screen reader, on its way down from the window of this title, meets a name for whatever takes
/// the focus.
bool namesAll(QWidget *window, const QString &title)
{
    QList<QAccessibleInterface *> open{QAccessible::queryAccessibleInterface(window)};
    const QAccessible::Role role = open.first()->role();
    bool all = open.first()->text(QAccessible::Name) == title &&
               (role == QAccessible::Window || role == QAccessible::Dialog);
    int stops = 0;
    while (!open.isEmpty()) {
        QAccessibleInterface *at = open.takeLast();
        if (at->state().invisible)
            continue;
        const auto *widget = qobject_cast<QWidget *>(at->object());
        if (widget && widget->focusPolicy() & Qt::TabFocus && at->state().focusable) {
            ++stops;
            all &= !at->text(QAccessible::Name).isEmpty();
        }
        for (int i = 0; at->role() != QAccessible::Table && i < at->childCount(); ++i)
            open.append(at->child(i));
    }
    return all && stops > 0;
}

} // namespace

class WindowKeyboardTest : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void reachesTheEnd_data()
    {
        // What is done, and how the tools of the store and the phone answer.
        const Rows<QString, Rules, Rules> all;
        const auto row = [&](const char *name, const QString &words, const Rules &store = {},
                             const Rules &device = {}) { all(name, words, store, device); };
        row("finds an app and downloads it, whatever its version",
            kFindApp + u"^Zarvo|@exactVersion|Space|@downloadButton|"_s + kChooseFolder +
                u"=IPA сохранён|"_s + kShowSaved);
        row("downloads by an identifier that is typed",
            u"Ctrl+F|'заметки|@table|Space|=Выбрано: заметки|@storeID|'777|@downloadButton|"_s +
                kChooseFolder + u"=IPA сохранён: заметки"_s);
        row("downloads all", u"@allButton|"_s + kChooseFolder + u"=Сохранено: 2"_s);
        row("signs in",
            u"@login|Return|@account|Ctrl+A|'a@example.com|@password|'Correct horse 7|Return|@code|"
            "'123456|Return|=Вход подтверждён."_s,
            [](Scenario &tool) {
                tool.when({u"auth", u"login"}).asks(u"enter Apple ID (email address or phone number): ");
                tool.asks(u"enter password: ", Scenario::Typing::Raw).asks(u"enter 2FA code: ");
                tool.prints(uR"({"success":true})");
            });
        row("gives the sign-in up",
            u"@login|Space|^Вход в Apple Account|@account|Esc|@login|Return|@Отмена|Return|@login"_s);
        row("goes to the ends of the table",
            u"@table|End|=Выбрано: Карты|Home|=Выбрано: Tom|End|Ctrl+C|#Карты\t1.5\tcom.example.maps"_s);
        row("chooses an IPA and installs it, on second thought",
            kChooseIPA +
                u"@installButton|Return|@Отмена|Return|@installButton|Space|@Установить|Return|=Установка подтверждена"_s,
            {}, [](Scenario &tool) {
                const QString apps = uR"({"apps":[{"id":"com.example.notes","version":"%1"}]})"_s;
                tool.when({u"install"}).prints(u"{\"success\":true}");
                tool.when({u"apps"}).times(1).prints(apps.arg(u"2.0"));
                tool.when({u"apps"}).prints(apps.arg(u"2.1"));
            });
        row("reads the instructions, and finds the file",
            u"F1|~/README.html|"_s + kChooseIPA + u"@reveal|Space|~{tools}"_s);
        row("reads about the phone", u"@infoButton|Return|^Сведения об iPhone|Esc|@infoButton"_s);
        row("forgets the phone",
            u"@showHistory|Return|^Ранее подключённые устройства|@forgetDevice|Return|=iPhone найден|Esc|"
            "@showHistory"_s);
        row("forgets all phones",
            u"@showHistory|Space|@clearHistory|Enter|=iPhone найден|Esc|@showHistory"_s);
        row("cancels what takes too long", u"@checkAccount|Space|@cancelButton|Space|=Операция отменена."_s,
            [](Scenario &tool) {
                tool.when({u"auth", u"info"}).times(1).prints(uR"({"success":true})");
                tool.when({u"auth", u"info"}).sleeps(kLong);
            });
        row("copies what went wrong",
            u"@reloadApps|Space|@checkAccount|Space|@Скопировать ошибку|Return|#Вход не подтверждён."_s,
            [](Scenario &tool) {
                tool.when({u"auth", u"info"}).prints(u"{}");
            });
    }

    void reachesTheEnd()
    {
        const auto &[words, store, device] = Row<QString, Rules, Rules>();
        m->tools.touch(u"README.html"_s);
        m_opened.paths.clear();
        m->playStore(store);
        m->playDevice(device);
        QVERIFY(m->start());
        walk(kChoosePhone + words);
    }

private:
    // What the user does or waits for; false: not possible yet, to be tried again. "@": goes to the control
    // of this name, or to the button that reads so; "'": types; "=": reads it while nothing runs; "^": has a
    // window of this title, all of it named; "~": has opened a file that ends so; "#": has copied it; without
    // a sign it is a key.
    bool does(const QString &word)
    {
        const QString text = word.mid(1);
        QWidget *active = QApplication::activeWindow();
        switch (word.at(0).unicode()) {
        case u'=':
            return !m->isBusy() && (m->status() + m->text("ownerLabel")).contains(text);
        case u'^':
            return active && namesAll(active, text);
        case u'~':
            return m_opened.paths.value(m_opened.paths.size() - 1).endsWith(text);
        case u'#':
            return QApplication::clipboard()->text().startsWith(text);
        case u'\'':
            TypeText(QApplication::focusWidget(), text);
            return true;
        }
        QWindow *window = focusedWindow(*m);
        if (word.startsWith(u'@') || !window)
            return window && goTo(text, window);
        const QKeyCombination keys = QKeySequence(word)[0];
        QTest::keyClick(window, keys.key(), keys.keyboardModifiers());
        return true;
    }

    void walk(QString words)
    {
        words.replace(u"{ipa}"_s, m->notesIPA).replace(u"{folder}"_s, m->destination.path());
        words.replace(u"{tools}"_s, m->tools.path());
        for (const QString &word : words.split(u'|'))
            QVERIFY2(QTest::qWaitFor([&] { return does(word); }, kPatience),
                     qPrintable(u"stuck at %1: %2"_s.arg(word, m->status())));
    }

    OpenedFiles m_opened;
};

QTEST_MAIN(WindowKeyboardTest)
#include "tst_window_keyboard.moc"
