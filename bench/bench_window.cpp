// The window: its start, its answer to a key, and its life while a long list is read.
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "measuring.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr double kKeystroke = 0.016;
constexpr double kLongestBlock = 0.050;
constexpr double kStart = 0.200;
constexpr double kStartMemory = 70;
constexpr auto kListPatience = std::chrono::seconds(60);

QByteArray appsReply(int count)
{
    QByteArray reply = "{\"apps\":[";
    for (int i = 0; i < count; ++i) {
        const QByteArray number = QByteArray::number((i * 7919) % count);
        reply += (i > 0 ? "," : "") + QByteArray("{\"id\":\"com.example.app") + number +
                 "\",\"name\":\"Приложение " + number + "\",\"version\":\"1." + number +
                 "\",\"storeID\":" + number + "}";
    }
    return reply + "]}\n";
}

// Tools that answer at once, from files.
void installTools(const QString &folder, int apps)
{
    QDir().mkpath(folder + u"/Tools"_s);
    QFile reply(folder + u"/apps.json"_s);
    if (reply.open(QIODevice::WriteOnly))
        reply.write(appsReply(apps));
    writeScript(folder + u"/Tools/ipatool"_s, R"(echo '{"success":true,"email":"owner@example.com"}')");
    writeScript(folder + u"/Tools/devicezarvo"_s,
                R"(case "$1" in
devices) echo '{"devices":[{"id":"phone","name":"Phone","ios":"17.5"}]}' ;;
apps) cat "$(dirname "$0")/../apps.json" ;;
*) echo '{"details":[]}' ;;
esac)");
}

// The longest stretch in which the event loop did not come round.
class Heartbeat : public QObject
{
public:
    Heartbeat() { startTimer(1); }
    void reset()
    {
        m_last = now();
        m_longest = 0;
    }
    double longest() const { return m_longest; }

protected:
    void timerEvent(QTimerEvent *) override
    {
        const double time = now();
        m_longest = std::max(m_longest, time - m_last);
        m_last = time;
    }

private:
    double m_last = now();
    double m_longest = 0;
};

class FirstPaint : public QObject
{
public:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && object->isWidgetType()) {
            // Once this round of the event loop is over, every part of the window has been painted.
            QMetaObject::invokeMethod(
                qApp,
                [] {
                    std::printf("%.9f %.1f\n", now(), peakMegabytes());
                    std::fflush(stdout);
                    std::_Exit(0);
                },
                Qt::QueuedConnection);
        }
        return false;
    }
};

void measureList(int count, const QString &folder, bool strict)
{
    installTools(folder, count);
    ZarvoApp controller(folder);
    controller.applicationDidFinishLaunching();
    QWidget *window = mainWindow();
    auto *picker = window->findChild<QComboBox *>(u"phonePicker"_s);
    auto *table = window->findChild<QTableView *>(u"table"_s);
    auto *search = window->findChild<QLineEdit *>(u"search"_s);
    const int patience = static_cast<int>(std::chrono::milliseconds(kListPatience).count());
    const bool found = QTest::qWaitFor([&] { return picker->count() == 2 && picker->isEnabled(); }, patience);
    Heartbeat heartbeat;
    heartbeat.reset();
    picker->setCurrentIndex(1);
    const bool read =
        QTest::qWaitFor([&] { return table->model()->rowCount() == count && table->isEnabled(); }, patience);
    QCoreApplication::processEvents();
    report(u"reading %1 apps: longest block of the main thread"_s.arg(count),
           u"%1 ms"_s.arg(heartbeat.longest() * 1e3, 0, 'f', 1), strict ? u"≤ 50 ms"_s : QString(),
           !strict || (found && read && heartbeat.longest() <= kLongestBlock));

    std::vector<double> keys;
    for (const char key : {'1', '2', '3', '\b', '\b', '\b', '9', '8', '\b', '\b'}) {
        const double start = now();
        QTest::keyClick(search, key == '\b' ? Qt::Key_Backspace : static_cast<Qt::Key>(key));
        window->repaint();
        table->viewport()->repaint();
        keys.push_back(now() - start);
    }
    report(u"one keystroke in the search field, %1 apps, worst of %2"_s.arg(count).arg(keys.size()),
           u"%1 ms"_s.arg(worst(keys) * 1e3, 0, 'f', 1), strict ? u"≤ 16 ms"_s : QString(),
           !strict || worst(keys) <= kKeystroke);
}

} // namespace

void writeScript(const QString &path, const QByteArray &body)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write("#!/bin/sh\n" + body + "\n");
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QWidget *mainWindow()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<MainWindow *>(widget))
            return widget;
    }
    return nullptr;
}

int showWindowOnce(int argc, char **argv)
{
    QApplication application(argc, argv);
    ZarvoApp controller(QString::fromLocal8Bit(argv[2]));
    FirstPaint firstPaint;
    application.installEventFilter(&firstPaint);
    controller.applicationDidFinishLaunching();
    return QApplication::exec();
}

void benchWindow(const QString &self, const QString &folder)
{
    installTools(folder, 10);
    std::vector<double> starts;
    std::vector<double> memories;
    for (int round = 0; round < 9; ++round) {
        const double start = now();
        const BareRun run = runBare({self, u"--show-window"_s, folder}, true);
        const QList<QByteArray> words = run.output.split(' ');
        if (words.size() == 2) {
            starts.push_back(words[0].toDouble() - start);
            memories.push_back(words[1].trimmed().toDouble());
        }
    }
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    const QString where = platform.isEmpty() ? u"on the display"_s : QString::fromLatin1(platform);
    if (starts.empty())
        return report(u"start to painted window"_s, u"the window did not show"_s, u"≤ 200 ms"_s, false);
    report(u"start to painted window (%1), median of %2"_s.arg(where).arg(starts.size()),
           u"%1 ms"_s.arg(median(starts) * 1e3, 0, 'f', 0), u"≤ 200 ms"_s, median(starts) <= kStart);
    report(u"resident memory with the window painted"_s, u"%1 MB"_s.arg(median(memories), 0, 'f', 1),
           u"≤ 70 MB"_s, median(memories) <= kStartMemory);
    measureList(1'000, folder, false);
    measureList(10'000, folder, true);
    measureList(100'000, folder, false);
}
