// Somebody does anything at all to the real window, and it neither crashes nor hangs nor leaves anything
// behind. ZARVO_WALK_SEEDS=1,2,3 and ZARVO_WALK_SECONDS (for each) walk elsewhere and longer; a failure names
// the seed that takes the same steps again. The program under the walk is this one, started with other
// arguments.
#include "app/main_window.h"
#include "app/piloted_program.h"
#include "app/window_fixture.h"
#include "app/windowed_mode.h"
#include "core/file_descriptor.h"
#include "ipa_writer.h"
#include "support/rows.h"

#include <QAccessible>
#include <QApplication>
#include <QDeadlineTimer>
#include <QPointer>
#include <QRandomGenerator>
#include <QTimer>
#include <QWheelEvent>
#include <QWindow>

#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr unsigned kAnswersWithin = 10; // s
#else
constexpr unsigned kAnswersWithin = 2;
#endif
constexpr auto kBeat = 100ms;
constexpr auto kLook = 20ms;
constexpr int kLongestPause = 30;   // ms
constexpr int kClickGap = 1000;     // ms, more than a double click's
constexpr int kMostRead = 2000;     // things that a screen reader looks at in one go
constexpr int kLastSteps = 40;      // to be shown
constexpr quint32 kSeldom = 20;     // one time in so many
constexpr quint32 kToQuit = 100;    // the same
constexpr quint32 kNextLife = 1000; // between the seeds of one walk

const QStringList kKeys =
    u"Tab Tab Tab Shift+Backtab Return Return Enter Space Space Esc Up Down Left Right Home End PgUp PgDown "
    "Shift+Down Shift+Home Del Backspace Menu F1 F4 F5 Alt+Down Alt+Up Alt+Z Ctrl+A Ctrl+C Ctrl+V Ctrl+X "
    "Ctrl+Z Ctrl+O Ctrl+F Ctrl+W Shift+Ins Ctrl+Q"_s.split(u' ');
const QStringList kButtons =
    u"downloadButton downloadButton allButton installButton infoButton showHistory chooseIPA login "
    "reloadApps checkAccount cancelButton"_s.split(u' ');
constexpr QStringView kLetters = u"абвЯё aZ09-_:;*?'\"…\u202e\u0301";
constexpr QStringView kNames[] = {u"Карты", u"Tom & <b>Jerry</b>", u"e\u202egnp.exe", u"",
                                  u"Очень длинное имя приложения, которому нет конца и края"};

void say(const QString &line)
{
    std::printf("%s\n", qUtf8Printable(line));
    std::fflush(stdout);
}

// How long the main thread has waited for a processor that others had, in nanoseconds.
qint64 waited()
{
    static const FileDescriptor schedule(::open("/proc/self/schedstat", O_RDONLY | O_CLOEXEC));
    std::array<char, 96> line{};
    const ssize_t size = ::pread(schedule.get(), line.data(), line.size() - 1, 0);
    const char *second = size > 0 ? std::strchr(line.data(), ' ') : nullptr;
    return second ? std::strtoll(second, nullptr, 10) : 0;
}
std::atomic<qint64> waitedBefore = 0;

// Whoever has waited for a processor gets the time once more; else it ends here, with the place told.
void doesNotAnswer(int number)
{
    if (::gettid() != ::getpid()) { // it is the main thread's place that counts
        ::tgkill(::getpid(), ::getpid(), number);
        return;
    }
    if (waited() - waitedBefore.exchange(waited()) > 1'000'000'000) {
        ::alarm(kAnswersWithin);
        return;
    }
    std::array<void *, 64> calls{};
    ::backtrace_symbols_fd(calls.data(), ::backtrace(calls.data(), calls.size()), STDERR_FILENO);
    ::signal(number, SIG_DFL);
    ::raise(number);
}

bool isChoosing()
{
    const QWidgetList all = QApplication::topLevelWidgets();
    return std::any_of(all.begin(), all.end(), [](const QWidget *widget) {
        return qobject_cast<const QFileDialog *>(widget) && widget->isVisible();
    });
}

// Repeats what Qt warns of, but for what a platform without a screen cannot do, and for what its own
// chooser tells a screen reader: it counts the rows at the root of all files, not in the folder that it
// shows.
void tell(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (!text.startsWith("This plugin does not support"_L1) &&
        !(text.startsWith("QAccessibleTable::child: Invalid index"_L1) && isChoosing()))
        say(u"warning: "_s + text);
}

/// Takes its steps for some time and notes them in a file of the resource folder. Says "walked" when the
/// window still does its work then, else what is wrong. On the way it may quit the program.
// As the user does it.
void pick(QComboBox *picker, int index)
{
    picker->setCurrentIndex(index);
    Q_EMIT picker->activated(index);
}

class Walker : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Walker)

public:
    Walker(const QString &resources, const QString &folder, quint32 seed, std::chrono::seconds time)
        : QObject(qApp)
        , m_resources(resources)
        , m_folder(folder)
        , m_seed(seed)
        , m_left(time)
        , m_log(resources + u"/steps"_s)
    {
        if (!m_log.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            qFatal("cannot write down the steps");
        for (const char *scheme : {"file", "https"})
            QDesktopServices::setUrlHandler(QLatin1StringView(scheme), this, "open");
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (qobject_cast<MainWindow *>(widget))
                m_window = widget;
        }
        auto *beats = new QTimer(this);
        connect(beats, &QTimer::timeout, this, [] {
            waitedBefore = waited();
            ::alarm(kAnswersWithin);
        });
        ::signal(SIGALRM, doesNotAnswer);
        beats->start(kBeat);
        goOn();
        changeTools();
    }
    ~Walker() override
    {
        for (const char *scheme : {"file", "https"})
            QDesktopServices::unsetUrlHandler(QLatin1StringView(scheme));
    }

public Q_SLOTS:
    void open(const QUrl &) {} // in place of the desktop

private:
    int below(qsizetype count) { return m_random.bounded(static_cast<int>(std::max<qsizetype>(count, 1))); }
    bool one(quint32 among) { return below(among) == 0; }
    template <typename List>
    auto any(const List &list)
    {
        return list[below(std::size(list))];
    }
    void note(const QString &text) { m_log.write((u' ' + text.simplified()).toUtf8()); }
    template <typename View = QAbstractButton>
    View *view(const QString &name) const
    {
        return m_window->findChild<View *>(name);
    }

    // A step may have an event loop of its own, in which the next ones are taken.
    void goOn()
    {
        if (m_left.hasExpired())
            return rest();
        const quint32 seeds[]{m_seed, ++m_count};
        m_random = QRandomGenerator(seeds);
        QTimer::singleShot(one(3) ? below(kLongestPause) : 0, this, &Walker::goOn);
        stayInside();
        m_log.write("\n" + QByteArray::number(m_count));
        note(u"[%1]"_s.arg(view<QLabel>(u"statusLabel"_s)->text().left(40)));
        takeStep();
    }

    void takeStep()
    {
        using Step = void (Walker::*)();
        static const std::pair<int, Step> kSteps[] = {
            {28, &Walker::press},       {35, &Walker::type},        {58, &Walker::click},
            {76, &Walker::pressButton}, {78, &Walker::drag},        {80, &Walker::wheel},
            {83, &Walker::resize},      {84, &Walker::changeLooks}, {86, &Walker::read},
            {88, &Walker::close},       {91, &Walker::activate},    {92, &Walker::end},
            {95, &Walker::changeTools}, {130, &Walker::goAhead}};
        const int lot = below(std::rbegin(kSteps)->first);
        const auto *step = std::begin(kSteps);
        while (step->first <= lot)
            ++step;
        (this->*step->second)();
    }

    // Nobody's files come to harm, wherever a chooser is led.
    void stayInside() const
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *chooser = qobject_cast<QFileDialog *>(widget);
            if (!chooser || !chooser->isVisible())
                continue;
            chooser->setOption(QFileDialog::ReadOnly);
            if (!chooser->directory().absolutePath().startsWith(m_folder))
                chooser->setDirectory(m_folder);
        }
    }

    /// What lies on top, or, one time in so many, any window.
    QWidget *front(quint32 stray = kSeldom)
    {
        QWidgetList shown = QApplication::topLevelWidgets();
        shown.removeIf([](const QWidget *widget) { return !widget->isVisible() || !widget->windowHandle(); });
        if (one(stray) && !shown.isEmpty())
            return any(shown);
        for (QWidget *widget : {QApplication::activePopupWidget(), QApplication::activeModalWidget(),
                                QApplication::activeWindow()}) {
            if (shown.contains(widget))
                return widget;
        }
        return m_window;
    }
    template <typename Widget>
    QList<Widget *> seenIn(QWidget *window) const
    {
        QList<Widget *> all = window->findChildren<Widget *>();
        all.removeIf([=](const QWidget *one) { return !one->isVisible() || one->window() != window; });
        return all;
    }
    QPoint somewhere(QWidget *window)
    {
        const QWidgetList all = seenIn<QWidget>(window);
        const QWidget *at = all.isEmpty() || one(4) ? window : any(all);
        note(QLatin1StringView(at->metaObject()->className()) + u' ' + at->objectName());
        return at->mapTo(window, QPoint(below(at->width()), below(at->height())));
    }

    // Events come as from the window system, and no others are let through meanwhile.
    void mouse(QEvent::Type type, const QPointer<QWindow> &window, QPoint at, Qt::MouseButton button)
    {
        const bool isMove = type == QEvent::MouseMove;
        if (window)
            qt_handleMouseEvent(window, at, window->mapToGlobal(at),
                                type == QEvent::MouseButtonRelease ? Qt::NoButton : button,
                                isMove ? Qt::NoButton : button, type, {}, ++m_time);
    }
    void clickAt(QWidget *window, QPoint at, Qt::MouseButton button, int times)
    {
        const QPointer handle = window->windowHandle();
        note(u"%1 clicks at %2, %3"_s.arg(times).arg(at.x()).arg(at.y()));
        m_time += kClickGap;
        for (; times > 0; --times) {
            for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease})
                mouse(type, handle, at, button);
        }
    }
    void clickOn(const QAbstractButton *button)
    {
        note(button->objectName() + button->text());
        clickAt(button->window(), button->mapTo(button->window(), button->rect().center()), Qt::LeftButton,
                1);
    }
    void press(QKeyCombination keys, const QString &text)
    {
        const QPointer window = QGuiApplication::focusWindow();
        for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            if (window)
                qt_handleKeyEvent(window, type, keys.key(), keys.keyboardModifiers(), text);
        }
    }

    // The steps
    void press()
    {
        const QString name = any(kKeys);
        const QKeyCombination keys = QKeySequence(name)[0];
        const char text = keys.keyboardModifiers() ? '\0' : QTest::keyToAscii(keys.key());
        note(name);
        if (keys.key() != Qt::Key_Q || one(kToQuit))
            press(keys, text == '\0' ? QString() : QString(QLatin1Char(text)));
    }
    void type() { press(Qt::Key_unknown, any(kLetters)); }
    void click()
    {
        QWidget *window = front();
        const QPoint at = somewhere(window);
        const auto button = one(4) ? Qt::RightButton : one(kSeldom) ? Qt::MiddleButton : Qt::LeftButton;
        clickAt(window, at, button, one(4) ? 2 : 1);
    }
    void pressButton()
    {
        if (const auto buttons = seenIn<QAbstractButton>(front()); !buttons.isEmpty())
            clickOn(any(buttons));
    }
    void drag()
    {
        QWidget *window = front();
        const QPointer handle = window->windowHandle();
        const QPoint from = somewhere(window);
        const QPoint to = somewhere(window);
        m_time += kClickGap;
        mouse(QEvent::MouseButtonPress, handle, from, Qt::LeftButton);
        for (const QPoint at : {(from + to) / 2, to})
            mouse(QEvent::MouseMove, handle, at, Qt::LeftButton);
        mouse(QEvent::MouseButtonRelease, handle, to, Qt::LeftButton);
    }
    void wheel()
    {
        QWidget *window = front();
        const QPoint at = somewhere(window);
        const QPoint turned(0, one(2) ? 120 : -120);
        QWheelEvent event(at, window->mapToGlobal(at), {}, turned, {}, {}, Qt::NoScrollPhase, false);
        if (QWindow *handle = window->windowHandle())
            QCoreApplication::sendEvent(handle, &event);
    }
    void resize() { front()->resize(300 + below(1100), 200 + below(800)); }
    void activate() { front()->activateWindow(); }
    void close()
    {
        QWidget *window = front(3);
        note(u"closes "_s + window->objectName());
        if (window != m_window || one(kToQuit))
            window->close();
    }
    void end()
    {
        if (one(kToQuit))
            ::raise(SIGTERM);
    }
    void changeLooks()
    {
        QFont font = QApplication::font();
        font.setPointSize(8 + below(9));
        QApplication::setFont(font);
        QApplication::setPalette(QPalette(one(2) ? Qt::lightGray : Qt::black));
    }
    // As a screen reader does.
    void read()
    {
        note(u"reads"_s);
        QAccessible::setActive(!one(4));
        QList<QAccessibleInterface *> open{QAccessible::queryAccessibleInterface(front())};
        for (int count = 0; !open.isEmpty() && count < kMostRead; ++count) {
            QAccessibleInterface *at = open.takeLast();
            if (!at || !at->isValid())
                continue;
            for (const auto kind : {QAccessible::Name, QAccessible::Value, QAccessible::Description})
                at->text(kind);
            (void)at->state();
            (void)at->focusChild();
            for (int i = 0; i < at->childCount(); ++i)
                open.append(at->child(i));
        }
    }
    // What somebody does next who wants to get somewhere.
    void goAhead()
    {
        QWidget *modal = QApplication::activeModalWidget();
        auto *picker = view<QComboBox>(u"phonePicker"_s);
        auto *table = view<QTableView>(u"table"_s);
        const int apps = table->model()->rowCount();
        if (modal)
            answer(modal);
        else if (picker->isEnabled() && one(picker->currentIndex() > 0 ? kSeldom : 1))
            pick(picker, below(picker->count()));
        else if (table->isEnabled() && apps > 0 && one(2))
            table->selectRow(below(apps));
        else
            clickOn(view(any(kButtons)));
    }
    void answer(QWidget *modal)
    {
        const auto *chooser = qobject_cast<const QFileDialog *>(modal);
        const QString good =
            chooser && chooser->fileMode() == QFileDialog::Directory ? m_folder : m_folder + u"/app.ipa"_s;
        for (QLineEdit *field : seenIn<QLineEdit>(modal)) {
            if (field->objectName() == "fileNameEdit"_L1)
                field->setText(one(4) ? u"nothing.ipa"_s : good);
            else if (field->isEnabled())
                TypeText(field, field->text().isEmpty() ? u"123456"_s : QString());
        }
        note(u"answers"_s);
        press(Qt::Key_Return, u"\r"_s);
    }

    // What the phones and the store are like from now on.
    void changeTools()
    {
        const auto takesTime = [this](Scenario &tool, int longest) -> Scenario & {
            return one(4) ? tool.sleeps(std::chrono::milliseconds(below(longest))) : tool;
        };
        QStringList phones;
        for (int left = below(4); left > 0; --left)
            phones += uR"({"id":"P%1","name":"%2","ios":"17"})"_s.arg(left).arg(any(kNames));
        QStringList apps;
        for (int left = below(one(4) ? 300 : 5); left > 0; --left)
            apps += uR"({"id":"ru.primer.a%1","name":"%2","version":"%3","storeID":%4})"_s.arg(below(left))
                        .arg(any(kNames))
                        .arg(below(3))
                        .arg(below(2));
        Scenario device(m_resources + u"/Tools/devicezarvo"_s);
        takesTime(device.when({u"devices"}), 500);
        device.prints(one(5) ? u"{\"error\":\"Телефон заблокирован.\"}"_s
                             : u"{\"devices\":[%1]}"_s.arg(phones.join(u',')));
        takesTime(device.when({u"apps"}), 3000).prints(u"{\"apps\":[%1]}"_s.arg(apps.join(u',')));
        takesTime(device.when({u"install"}), 5000).prints(one(2) ? u"{\"success\":true}" : u"{}");
        device.when({}).prints(uR"({"details":[{"label":"Модель","value":"iPhone"}]})");

        Scenario store(m_resources + u"/Tools/ipatool"_s);
        takesTime(store.when({u"auth", u"info"}), 3000);
        store.prints(one(4) ? u"{}" : uR"({"email":"owner@primer.example","success":true})");
        store.when({u"login"}).asks(u"enter Apple ID (email address or phone number): ");
        store.asks(u"enter password: ", Scenario::Typing::Raw).asks(u"enter 2FA code: ");
        store.prints(one(2) ? u"{\"success\":true}" : u"{\"success\":false}");
        store.when({u"list-purchases"}).prints(u"{\"apps\":[],\"count\":0,\"totalCount\":0}");
        takesTime(store.when({u"download"}).grows(1'000'000, 300ms, u"{--output}.tmp"), 5000);
        store.copies(m_folder + u"/app.ipa"_s).prints(one(4) ? u"{}" : u"{\"success\":true}");
    }

    // Everything is closed and ended; then the window still finds a phone and reads its apps.
    void rest()
    {
        QTimer::singleShot(kLook, this, &Walker::rest);
        const auto *cancel = view(u"cancelButton"_s);
        auto *picker = view<QComboBox>(u"phonePicker"_s);
        QWidget *popup = QApplication::activePopupWidget();
        press(Qt::Key_Escape, u"\x1b"_s); // whatever is dragged falls back
        if (!std::exchange(m_isHealthy, true)) {
            Scenario device(m_resources + u"/Tools/devicezarvo"_s);
            device.when({u"devices"}).prints(uR"({"devices":[{"id":"LAST","name":"Last","ios":"18"}]})");
            device.when({u"apps"}).prints(uR"({"apps":[{"id":"ru.primer.last","name":"A","version":"1"}]})");
            device.when({}).prints(u"{\"details\":[]}");
        }
        if (QWidget *over = popup ? popup : QApplication::activeModalWidget())
            over->close();
        else if (cancel->isEnabled() && !m_isChosen)
            clickOn(cancel);
        else if (picker->findData(u"LAST"_s) < 0)
            clickOn(view(u"refresh"_s));
        else if (!std::exchange(m_isChosen, true))
            pick(picker, 1);
        else if (!cancel->isEnabled() && view<QTableView>(u"table"_s)->model()->rowCount() == 1)
            say(u"walked"_s), QCoreApplication::quit();
    }

    const QString m_resources;
    const QString m_folder;
    const quint32 m_seed;
    QDeadlineTimer m_left;
    QFile m_log;
    QWidget *m_window = nullptr;
    QRandomGenerator m_random;
    quint32 m_count = 0;
    int m_time = 0;
    bool m_isHealthy = false;
    bool m_isChosen = false;
};

int walk(int argc, char **argv)
{
    const QStringList words{QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2])};
    const quint32 seed = QByteArray(argv[3]).toUInt();
    const std::chrono::seconds time(QByteArray(argv[4]).toInt());
    QDir::setCurrent(words[1]);
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    argc = 1;
    return RunWindow(argc, argv, {.resources = words[0], .launched = [&] {
                                      qInstallMessageHandler(tell);
                                      new Walker(words[0], words[1], seed, time);
                                  }});
}

} // namespace

class RandomWalkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void walks_data()
    {
        const Rows<quint32> row;
        for (const QString &seed : qEnvironmentVariable("ZARVO_WALK_SEEDS", u"1,2,3"_s).split(u','))
            row(qPrintable(seed), seed.toUInt());
    }

    // Whenever the program is quit on the way, another one goes on.
    void walks()
    {
        auto [seed] = Row<quint32>();
        const int asked = qEnvironmentVariableIntValue("ZARVO_WALK_SECONDS");
        const QDeadlineTimer end(std::chrono::seconds(asked > 0 ? asked : 4));
        for (; !end.hasExpired() && !QTest::currentTestFailed(); seed += kNextLife)
            live(seed, std::chrono::ceil<std::chrono::seconds>(end.remainingTimeAsDuration()));
    }

private:
    static void live(quint32 seed, std::chrono::seconds time)
    {
        ScriptedTools tools;
        const QTemporaryDir folder;
        const TemporaryTmpdir temporary;
        qputenv("HOME", QFile::encodeName(folder.path()));
        for (const QString &tool : {u"devicezarvo"_s, u"ipatool"_s})
            (void)tools.add(tool);
        QVERIFY(writeIPA(folder.filePath(u"app.ipa"_s).toStdString(), {.id = u"ru.primer.a1"_s}));
        PilotedProgram program;
        QVERIFY(
            program.start(tools.path(), folder.path(), QString::number(seed), QString::number(time.count())));
        bool walked = false; // each time it is waited for half a minute, unless the program has ended
        for (auto left = time + 30s; left > 0s && !walked; left -= 30s)
            walked = program.waitForLine("walked");
        const int status = walked || program.printed().isEmpty() ? program.waitForEnd().status : -1;
        const int survivors = PilotedProgram::survivors(500ms);
        const QStringList left = FilesBelow(folder.path(), u".zarvo-*"_s) + temporary.leftovers();
        if (status == 0 && survivors == 0 && left.isEmpty() && !program.printed().contains("warning"))
            return;
        const QList<QByteArray> steps = ContentOf(tools.filePath(u"steps"_s)).split('\n');
        qInfo("%s", steps.mid(steps.size() - kLastSteps).join('\n').constData());
        const QString result = u"seed %1: status %2, %3 survivors, left: %4; said:\n%5"_s;
        QFAIL(qPrintable(result.arg(seed).arg(status).arg(survivors).arg(
            left.join(u' '), QString::fromUtf8(program.printed()))));
    }
};

int main(int argc, char **argv)
{
    if (argc == 5)
        return walk(argc, argv);
    Program::isolate();
    QCoreApplication application(argc, argv);
    RandomWalkTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_random_walk.moc"
