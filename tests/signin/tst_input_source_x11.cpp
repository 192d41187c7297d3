// What a real X server has to do with the sign-in: keyboard layouts and the clipboard. The test starts one
// for itself.
#include "signin/memory_search.h"
#include "signin/secret_field.h"
#include "signin/sign_in_fixture.h"
#include "signin/sign_in_window.h"
#include "support/rows.h"

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QProcess>

#include <sys/prctl.h>

#include <cstdio>

// Last: it defines macros with everyday names.
#include <X11/Xlib.h>
#undef None

using namespace Qt::StringLiterals;

namespace {

const QString kHoldClipboard = u"--hold-clipboard"_s;

bool setLayouts(const QString &layouts, const QString &variants = {})
{
    return QProcess::execute(u"setxkbmap"_s,
                             {u"-layout"_s, layouts, u"-variant"_s, variants, u"-option"_s, {}}) == 0;
}

// A window of another program.
class OtherWindow
{
public:
    OtherWindow()
        : m_display(::XOpenDisplay(nullptr))
        , m_window(::XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, 50, 50, 0, 0, 0))
    {
        ::XMapWindow(m_display, m_window);
        ::XSync(m_display, False);
    }
    ~OtherWindow() { ::XCloseDisplay(m_display); }
    OtherWindow(const OtherWindow &) = delete;
    OtherWindow &operator=(const OtherWindow &) = delete;

    // What a window manager does when the user changes windows; there is none here.
    void takeFocus() { giveFocus(m_window); }
    void giveFocus(WId window)
    {
        ::XSetInputFocus(m_display, window, RevertToPointerRoot, CurrentTime);
        ::XSync(m_display, False);
    }

private:
    Display *m_display;
    Window m_window;
};

} // namespace

class InputSourceX11Test : public QObject
{
    Q_OBJECT

    std::unique_ptr<InputSource> m_user; // a connection of its own, as the desktop's switch has

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(setLayouts(u"us,ru"_s), "setxkbmap (package x11-xkb-utils) is needed");
        m_user = InputSource::ofThisDesktop();
        QCOMPARE(m_user->current(), u"us"_s);
    }

    void choosesEnglish_data()
    {
        const Rows<QString, QString, QString, QString> row; // layouts, variants, in use, the English one
        row("behind another Latin one", u"ru,de,gb"_s, {}, u"ru"_s, u"gb"_s);
        row("preferred to another Latin one in use", u"de,us"_s, {}, u"de"_s, u"us"_s);
        row("the variant that is in use", u"us,us,ru"_s, u"dvorak,,"_s, u"us"_s, u"us"_s);
        row("the first variant", u"us,us,ru"_s, u"dvorak,,"_s, u"ru"_s, u"us(dvorak)"_s);
        row("a Latin variant of a Cyrillic layout", u"ru,rs"_s, u",latin"_s, u"ru"_s, u"rs(latin)"_s);
        row("English of Canada", u"ru,ca"_s, u",eng"_s, u"ru"_s, u"ca(eng)"_s);
        row("none: Russian, Serbian, Greek", u"ru,rs,gr"_s, {}, u"rs"_s, {});
    }

    void choosesEnglish()
    {
        const auto &[layouts, variants, inUse, english] = Row<QString, QString, QString, QString>();
        QVERIFY(setLayouts(layouts, variants));
        m_user->select(inUse);
        QCOMPARE(m_user->current(), inUse);
        QCOMPARE(m_user->english(), english);
        m_user->select(u"nonsense"_s);
        QCOMPARE(m_user->current(), inUse);
    }

    void tellsOfChanges()
    {
        QVERIFY(setLayouts(u"us,ru"_s));
        m_user->select(u"us"_s);
        const auto source = InputSource::ofThisDesktop();
        int changes = 0;
        source->changed = [&] { ++changes; };
        for (const QString &layout : {u"ru"_s, u"us"_s, u"ru"_s}) {
            m_user->select(layout);
            m_user->current(); // has been answered: the server has done it
            // The answer to a question brings the event along; it must not get lost.
            QCOMPARE(source->current(), layout);
            EVENTUALLY(changes > 0);
            changes = 0;
        }
        QVERIFY(setLayouts(u"ru"_s));
        EVENTUALLY(changes > 0);
    }

    void passwordIsTypedInEnglish()
    {
        QVERIFY(setLayouts(u"us,ru"_s));
        m_user->select(u"ru"_s);
        QWidget parent;
        parent.show();
        LegacyAuth auth(&parent, u"/nowhere/ipatool"_s, u"a@example.com"_s, {});
        auth.show();
        auto *window = parent.findChild<SignInWindow *>();
        QVERIFY(QTest::qWaitForWindowActive(window));
        auto *account = window->findChild<QLineEdit *>(u"account"_s);
        auto *password = window->findChild<QLineEdit *>(u"password"_s);
        EVENTUALLY_EQUAL(m_user->current(), u"us"_s); // the account is there: the password is to be typed
        account->setFocus();
        QCOMPARE(m_user->current(), u"ru"_s);

        password->setFocus();
        m_user->select(u"ru"_s); // while typing
        EVENTUALLY_EQUAL(m_user->current(), u"us"_s);

        OtherWindow other;
        other.takeFocus();
        EVENTUALLY_EQUAL(m_user->current(), u"ru"_s);
        QVERIFY(!window->isActiveWindow());
        m_user->select(u"us"_s); // there the choice is the user's
        m_user->select(u"ru"_s);
        QTest::qWait(100);
        QCOMPARE(m_user->current(), u"ru"_s);
        other.giveFocus(window->winId());
        EVENTUALLY_EQUAL(m_user->current(), u"us"_s);
        account->setFocus(); // coming back did not begin anew: it is still the first layout that returns
        QCOMPARE(m_user->current(), u"ru"_s);
    }

    void pastesWithoutATrace_data()
    {
        const Rows<QString> row; // as what alone the other program gives its text
        for (const char *target : {"UTF8_STRING", "STRING", "text/plain", "text/plain;charset=utf-8"})
            row(target, QString::fromLatin1(target));
    }

    // The text comes from another program, as from a password manager.
    void pastesWithoutATrace()
    {
        const auto &[target] = Row<QString>();
        QProcess owner;
        owner.start(QApplication::applicationFilePath(), {kHoldClipboard, target});
        QVERIFY(owner.waitForReadyRead(kPatience));
        const Canary canary(owner.readLine().chopped(1));
        QCOMPARE(CountInMemory(canary), 0);
        SecretField field;
        field.show();
        QVERIFY(QTest::qWaitForWindowExposed(&field));
        for (const Qt::KeyboardModifiers held :
             {Qt::KeyboardModifiers(Qt::ShiftModifier), Qt::ShiftModifier | Qt::ControlModifier}) {
            QTest::keyClick(&field, Qt::Key_Insert, held); // clipboard, then selection
            QCOMPARE(field.secret().size(), canary.size());
            for (qsizetype i = 0; i < canary.size(); ++i)
                QCOMPARE(field.secret().view().at(i), canary.at(i));
            QCOMPARE(CountInMemory(canary), 1); // the field's own
            field.clearSecret();
            QCOMPARE(CountInMemory(canary), 0);
        }

        ::kill(static_cast<pid_t>(owner.processId()), SIGSTOP); // it does not answer
        QElapsedTimer time;
        time.start();
        QTest::keySequence(&field, QKeySequence::Paste);
        QVERIFY(field.secret().isEmpty() && time.elapsed() < 2000);
        owner.kill();
        QVERIFY(owner.waitForFinished(kPatience));
        QTest::keySequence(&field, QKeySequence::Paste); // nobody holds it
        QVERIFY(field.secret().isEmpty());
        QApplication::clipboard()->setText(u"mine"_s); // this process does
        QTest::keySequence(&field, QKeySequence::Paste);
        QCOMPARE(field.secret().view(), u"mine"_s);
    }
};

// Another program: gives a text that exists nowhere else, as the one target, and says masked what it is.
static int holdClipboard(const char *target)
{
    const Canary canary = Canary::ofLetters(24);
    QByteArray text;
    for (qsizetype i = 0; i < canary.size(); ++i)
        text.append(canary.at(i).toLatin1());
    Display *display = ::XOpenDisplay(nullptr);
    const Window window = ::XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    const Atom given = ::XInternAtom(display, target, False);
    for (const char *selection : {"CLIPBOARD", "PRIMARY"})
        ::XSetSelectionOwner(display, ::XInternAtom(display, selection, False), window, CurrentTime);
    ::XSync(display, False);
    std::puts(canary.masked().constData());
    std::fflush(stdout);
    for (XEvent event;;) {
        ::XNextEvent(display, &event);
        if (event.type != SelectionRequest)
            continue;
        const XSelectionRequestEvent &asked = event.xselectionrequest;
        XEvent answer = {};
        answer.xselection = {
            SelectionNotify, 0,         True, display, asked.requestor, asked.selection, asked.target,
            asked.property,  asked.time};
        if (asked.target == given)
            ::XChangeProperty(display, asked.requestor, asked.property, given, 8, PropModeReplace,
                              reinterpret_cast<const unsigned char *>(text.constData()),
                              static_cast<int>(text.size()));
        else
            answer.xselection.property = 0;
        ::XSendEvent(display, asked.requestor, False, 0, &answer);
        ::XFlush(display);
    }
}

// Qt needs the display before anything else.
int main(int argc, char **argv)
{
    if (argc == 3 && QLatin1StringView(argv[1]) == kHoldClipboard)
        return holdClipboard(argv[2]);
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }); // also when the test crashes
    server.start(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-noreset"_s, u"-nolisten"_s, u"tcp"_s, u"-screen"_s,
                             u"0"_s, u"1024x768x24"_s});
    if (!server.waitForReadyRead(kPatience)) {
        std::fprintf(stderr, "FAIL!  : Xvfb (package xvfb) is needed: %s\n",
                     qPrintable(server.errorString()));
        return 1;
    }
    qputenv("DISPLAY", ':' + server.readLine().trimmed());
    qputenv("QT_QPA_PLATFORM", "xcb");
    int result = 0;
    {
        QApplication application(argc, argv);
        InputSourceX11Test test;
        result = QTest::qExec(&test, argc, argv);
    }
    server.terminate();
    server.waitForFinished(kPatience);
    return result;
}

#include "tst_input_source_x11.moc"
