// The window: its start, its answer to a key, and its life while a long list is read.
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "instructions.h"
#include "measuring.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>
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

/// The window with a phone of so many apps.
class LongList
{
public:
    LongList(int count, const QString &folder)
        : m_controller(folder)
    {
        installTools(folder, count);
        m_controller.applicationDidFinishLaunching();
        m_window = mainWindow(); // NOLINT(cppcoreguidelines-prefer-member-initializer): not there before
        auto *picker = m_window->findChild<QComboBox *>(u"phonePicker"_s);
        m_table = m_window->findChild<QTableView *>(u"table"_s);
        m_search = m_window->findChild<QLineEdit *>(u"search"_s);
        const int patience = static_cast<int>(std::chrono::milliseconds(kListPatience).count());
        const bool found =
            QTest::qWaitFor([&] { return picker->count() == 2 && picker->isEnabled(); }, patience);
        m_heartbeat.reset();
        picker->setCurrentIndex(1);
        Q_EMIT picker->activated(1);
        isRead =
            QTest::qWaitFor([&] { return m_table->model()->rowCount() == count && m_table->isEnabled(); },
                            patience) &&
            found;
        QCoreApplication::processEvents();
        longestBlock = m_heartbeat.longest();
    }

    /// Types the key in the search field and has the window painted.
    void type(char key) const
    {
        QTest::keyClick(m_search, key == '\b' ? Qt::Key_Backspace : static_cast<Qt::Key>(key));
        m_window->repaint();
        m_table->viewport()->repaint();
    }

    bool isRead = false;
    double longestBlock = 0;

private:
    ZarvoApp m_controller;
    QWidget *m_window = nullptr;
    QTableView *m_table = nullptr;
    QLineEdit *m_search = nullptr;
    Heartbeat m_heartbeat;
};

void measureList(int count, const QString &folder, bool strict)
{
    const LongList list(count, folder);
    report(u"reading %1 apps: longest block of the main thread"_s.arg(count),
           u"%1 ms"_s.arg(list.longestBlock * 1e3, 0, 'f', 1), strict ? u"≤ 50 ms"_s : QString(),
           !strict || (list.isRead && list.longestBlock <= kLongestBlock));

    std::vector<double> keys;
    for (const char key : {'1', '2', '3', '\b', '\b', '\b', '9', '8', '\b', '\b'}) {
        const double start = now();
        list.type(key);
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

void countKeystroke(int argc, char **argv, int apps)
{
    QApplication application(argc, argv);
    const QTemporaryDir folder;
    const LongList list(apps, folder.path());
    list.type('1'); // what is done once is done now
    list.type('\b');
    counted([&] { list.type('1'); });
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
    QStringList counts;
    for (const QString &apps : {u"1000"_s, u"10000"_s}) {
        const auto count = instructionsOf({u"keystroke"_s, apps}, folder);
        counts << (count ? u"%1 million"_s.arg(*count / 1e6, 0, 'f', 1) : u"not counted"_s);
    }
    report(u"one keystroke in instructions, 1000 and 10000 apps, counted by "_s + whoCounts(),
           counts.join(u", "_s));
}
