// The real windowed program with somebody at the controls: pilot RESOURCES DESTINATION ACTION [ARGUMENT…].
// The program gets the arguments. Chooses the first phone and starts the action. Says "ready" on standard
// output right before the action and "at work" once it is under way; obeys "close" and "key" (Ctrl+Q) on
// standard input. "show" only says which IPA is chosen.
#include "app/main_window.h"
#include "app/windowed_mode.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kLook = 5ms;

struct Action
{
    const char *button = nullptr; // none: nothing is to be pressed
    QString sign;                 // how the status begins once it is under way
};
const std::map<QString, Action> kActions{{u"check"_s, {}},
                                         {u"idle"_s, {}},
                                         {u"download"_s, {"downloadButton", u"Загрузка:"_s}},
                                         {u"verify"_s, {"downloadButton", u"Проверка IPA:"_s}},
                                         {u"batch"_s, {"allButton", u"Загрузка:"_s}},
                                         {u"install"_s, {"installButton", u"Передача IPA"_s}},
                                         {u"info"_s, {"infoButton", u"Сведения обновлены"_s}},
                                         {u"login"_s, {"login", {}}},
                                         {u"poll"_s, {"refresh", {}}}};

void say(const QString &line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

class Pilot : public QObject
{
public:
    Pilot(QString destination, QString action)
        : m_destination(std::move(destination))
        , m_action(std::move(action))
        , m_commands(STDIN_FILENO, QSocketNotifier::Read)
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (qobject_cast<MainWindow *>(widget))
                m_window = widget;
        }
        connect(&m_commands, &QSocketNotifier::activated, this, &Pilot::obey);
        connect(&m_timer, &QTimer::timeout, this, &Pilot::look);
        m_timer.start(kLook);
    }

private:
    template <typename View>
    View *view(const char *name) const
    {
        return m_window->findChild<View *>(QLatin1StringView(name));
    }
    QString status() const { return view<QLabel>("statusLabel")->text(); }
    bool isBusy() const { return view<QPushButton>("cancelButton")->isEnabled(); }
    void press(const char *button) const { QTest::mouseClick(view<QPushButton>(button), Qt::LeftButton); }

    void obey()
    {
        char line[16] = {};
        const ssize_t got = ::read(STDIN_FILENO, line, sizeof line - 1);
        if (got <= 0)
            m_commands.setEnabled(false);
        else if (QByteArrayView(line).startsWith("close"))
            m_window->close();
        else if (m_window->activateWindow(); QTest::qWaitForWindowActive(m_window))
            QTest::keyClick(m_window, Qt::Key_Q, Qt::ControlModifier);
    }

    // Each look does the one thing that can be done now; an open dialog comes first.
    void look()
    {
        if (auto *chooser = qobject_cast<QFileDialog *>(QApplication::activeModalWidget()))
            return answer(chooser);
        if (m_pressed)
            return watch();
        if (m_action == u"show") {
            say(view<QLabel>("ipaLabel")->text());
            return QCoreApplication::quit();
        }
        auto *picker = view<QComboBox>("phonePicker");
        auto *table = view<QTableView>("table");
        if (m_action == u"check" ? !isBusy() : isBusy() || picker->count() < 2)
            return;
        const bool needsPhone = kActions.at(m_action).button != nullptr;
        if (needsPhone && picker->currentIndex() == 0) {
            picker->setCurrentIndex(1);
            Q_EMIT picker->activated(1);
        } else if (!needsPhone || table->model()->rowCount() > 0)
            begin();
    }

    void answer(QFileDialog *chooser) const
    {
        auto *name = chooser->findChild<QLineEdit *>(u"fileNameEdit"_s);
        name->setText(m_destination);
        QTest::keyClick(name, Qt::Key_Return);
    }

    void begin()
    {
        m_pressed = true;
        view<QTableView>("table")->selectRow(0); // any one
        say(u"ready"_s);
        if (m_action == u"info")
            press("showHistory");
        if (const char *button = kActions.at(m_action).button)
            press(button);
    }

    static void signIn(QWidget *sheet)
    {
        if (!sheet)
            return;
        for (const QString &field : {u"account"_s, u"password"_s})
            QTest::keyClicks(sheet->findChild<QLineEdit *>(field), u"owner"_s);
        QTest::mouseClick(sheet->findChild<QPushButton *>(u"startButton"_s), Qt::LeftButton);
    }

    void watch()
    {
        if (m_action == u"install" && !isBusy()) {
            if (auto *alert = qobject_cast<QDialog *>(QApplication::activeModalWidget()))
                QTest::keyClick(alert, Qt::Key_Return);
        }
        if (m_action == u"login" && !m_said)
            signIn(QApplication::activeModalWidget());
        const bool isAtWork = m_action == u"login" ? QApplication::activeModalWidget() != nullptr
                                                   : status().startsWith(kActions.at(m_action).sign);
        if (!m_said && isAtWork)
            say(u"at work"_s);
        m_said |= isAtWork;
        m_wasBusy |= isBusy();
        if (isBusy() || !(m_said || m_wasBusy))
            return;
        m_timer.stop();
        say(status());
        say(u"done"_s);
    }

    QString m_destination;
    QString m_action;
    QWidget *m_window = nullptr;
    QSocketNotifier m_commands;
    QTimer m_timer;
    bool m_pressed = false;
    bool m_said = false;
    bool m_wasBusy = false;
};

// ThreadSanitizer keeps a signal back while its thread waits in code that it does not know, as the main
// thread does in Qt. Then the thread that serves the signals shall get them.
void leaveSignalsToTheirThread()
{
#ifdef __SANITIZE_THREAD__
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&ends, number);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
#endif
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4)
        return 2;
    const QString resources = QString::fromLocal8Bit(argv[1]);
    const QString destination = QString::fromLocal8Bit(argv[2]);
    const QString action = QString::fromLocal8Bit(argv[3]);
    constexpr int kOwn = 3;
    argv[kOwn] = argv[0];
    argc -= kOwn;
    std::unique_ptr<Pilot> pilot;
    return RunWindow(argc, argv + kOwn, {.resources = resources, .launched = [&] {
                                             leaveSignalsToTheirThread();
                                             pilot = std::make_unique<Pilot>(destination, action);
                                         }});
}
