// The program as it is installed on a display, and another program of its kind beside it: both are started
// and watched from outside, in the same manner.
#include "measuring.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr int kShowRounds = 9;
constexpr double kShowPatience = 20; // seconds
constexpr int kShowPatienceMs = 20'000;
constexpr auto kLook = 500us;
constexpr int kSmallestSide = 200; // of a window that is more than a help
constexpr double kShownStart = 0.200;
constexpr double kShownMemory = 70;

template <typename Reply>
struct Free
{
    void operator()(Reply *reply) const { std::free(reply); }
};
template <typename Reply>
using Held = std::unique_ptr<Reply, Free<Reply>>;

/// A connection to the display on which windows are watched.
class Watcher
{
public:
    explicit Watcher(const QByteArray &display)
        : m_connection(xcb_connect(display.constData(), nullptr))
    {
        if (xcb_connection_has_error(m_connection))
            return;
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(m_connection, root, XCB_CW_EVENT_MASK, &mask);
        xcb_flush(m_connection);
    }
    ~Watcher() { xcb_disconnect(m_connection); }
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    /// Whether a window has come and more than one colour is in it.
    bool seesPaintedWindow()
    {
        while (const Held<xcb_generic_event_t> event{xcb_poll_for_event(m_connection)}) {
            if ((event->response_type & 0x7F) == XCB_MAP_NOTIFY)
                m_mapped.push_back(reinterpret_cast<xcb_map_notify_event_t *>(event.get())->window);
        }
        return !xcb_connection_has_error(m_connection) &&
               std::any_of(m_mapped.begin(), m_mapped.end(),
                           [this](xcb_window_t window) { return isPainted(window); });
    }

private:
    bool isPainted(xcb_window_t window)
    {
        const Held<xcb_get_geometry_reply_t> size{
            xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr)};
        if (!size || size->width < kSmallestSide || size->height < kSmallestSide)
            return false;
        for (const int quarter : {1, 2, 3}) {
            // Downwards, across bars, lists and buttons.
            const auto column = static_cast<int16_t>(size->width * quarter / 4);
            const Held<xcb_get_image_reply_t> line{
                xcb_get_image_reply(m_connection,
                                    xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, window, column, 0,
                                                  1, size->height, ~0U),
                                    nullptr)};
            if (!line)
                return false;
            const auto *pixels = reinterpret_cast<const uint32_t *>(xcb_get_image_data(line.get()));
            const auto *end = pixels + xcb_get_image_data_length(line.get()) / sizeof(uint32_t);
            if (std::adjacent_find(pixels, end, std::not_equal_to<>()) != end)
                return true;
        }
        return false;
    }

    xcb_connection_t *m_connection;
    std::vector<xcb_window_t> m_mapped;
};

struct Start
{
    double seconds;
    double megabytes;
};

double residentMegabytes(qint64 process)
{
    QFile file(u"/proc/%1/status"_s.arg(process));
    const QByteArray status = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const qsizetype at = status.indexOf("VmRSS:");
    return status.mid(at + 6, status.indexOf("kB", at) - at - 6).trimmed().toDouble() * 1024 / 1e6;
}

/// Starts the program and ends it once its window is painted; nothing when none came.
std::optional<Start> startOnce(const QStringList &command, const QByteArray &display)
{
    Watcher watcher(display);
    QProcess program;
    program.setStandardOutputFile(QProcess::nullDevice());
    program.setStandardErrorFile(QProcess::nullDevice());
    const double start = now();
    program.start(command[0], command.sliced(1));
    std::optional<Start> measured;
    while (!measured && now() - start < kShowPatience && program.state() != QProcess::NotRunning) {
        if (watcher.seesPaintedWindow())
            measured = {now() - start, residentMegabytes(program.processId())};
        std::this_thread::sleep_for(kLook);
    }
    program.kill();
    program.waitForFinished();
    return measured;
}

struct Starts
{
    bool isInstalled = true;
    std::vector<double> seconds;
    std::vector<double> megabytes;

    void add(const std::optional<Start> &start)
    {
        if (start) {
            seconds.push_back(start->seconds);
            megabytes.push_back(start->megabytes);
        }
    }
};

QString comparison(const Starts &all, const Starts &others, std::vector<double> Starts::*figure,
                   double factor, const QString &unit)
{
    const std::vector<double> &ours = all.*figure;
    const std::vector<double> &theirs = others.*figure;
    if (ours.empty())
        return u"no window came"_s;
    const QString own = u"%1 %2"_s.arg(median(ours) * factor, 0, 'f', 0).arg(unit);
    if (theirs.empty())
        return own + (others.isInstalled ? u" (no window of the other came)"_s : u" (not installed)"_s);
    return u"%1 over %2 %3, ratio %4"_s.arg(own)
        .arg(median(theirs) * factor, 0, 'f', 0)
        .arg(unit)
        .arg(median(ours) / median(theirs), 0, 'f', 2);
}

} // namespace

void benchDisplay(const QString &zarvo, const QString &folder)
{
    const QString what =
        u"start to painted window under Xvfb, median of %1, over keepassxc"_s.arg(kShowRounds);
    QProcess server;
    server.start(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-noreset"_s, u"-nolisten"_s, u"tcp"_s, u"-screen"_s,
                             u"0"_s, u"1600x1200x24"_s});
    if (!server.waitForStarted() || !server.waitForReadyRead(kShowPatienceMs))
        return report(what, u"Xvfb: not installed"_s);
    const QByteArray display = ':' + server.readAllStandardOutput().trimmed();
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    const QByteArray home = qgetenv("HOME");
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("DISPLAY", display);
    qputenv("HOME", QFile::encodeName(folder));

    const QString other = QStandardPaths::findExecutable(u"keepassxc"_s);
    const QStringList others{other, u"--config"_s, folder + u"/other.ini"_s, u"--localconfig"_s,
                             folder + u"/other-local.ini"_s};
    Starts ours;
    Starts theirs;
    theirs.isInstalled = !other.isEmpty();
    startOnce({zarvo}, display); // what comes from the disk comes now
    if (theirs.isInstalled)
        startOnce(others, display);
    for (int round = 0; round < kShowRounds; ++round) {
        ours.add(startOnce({zarvo}, display));
        if (theirs.isInstalled)
            theirs.add(startOnce(others, display));
    }
    report(what, comparison(ours, theirs, &Starts::seconds, 1e3, u"ms"_s), u"≤ 200 ms"_s,
           !ours.seconds.empty() && median(ours.seconds) <= kShownStart);
    report(u"the same, resident memory"_s, comparison(ours, theirs, &Starts::megabytes, 1, u"MB"_s),
           u"≤ 70 MB"_s, !ours.megabytes.empty() && median(ours.megabytes) <= kShownMemory);
    qputenv("QT_QPA_PLATFORM", platform);
    qputenv("HOME", home);
    qunsetenv("DISPLAY");
    server.terminate();
    server.waitForFinished();
}
