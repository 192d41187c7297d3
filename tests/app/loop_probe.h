// How long the event loop is kept from its next turn, and what the status line says meanwhile. Main thread.
#pragma once

#include "core/file_descriptor.h"

#include <QApplication>
#include <QLabel>
#include <QPointer>
#include <QStringList>
#include <QThread>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>

/// An application that takes the time of every event: a window answers as soon as the one before is done.
class LoopProbe : public QApplication
{
public:
    using QApplication::QApplication;
    using Time = std::chrono::nanoseconds;

    /// Begins anew, and writes down from now on what the label says after each event.
    void begin(QLabel *status)
    {
        longest = longestOwn = {};
        said.clear();
        m_status = status;
    }
    bool hasSaid(QStringView sentence) const
    {
        return std::any_of(said.begin(), said.end(),
                           [&](const auto &text) { return text.startsWith(sentence); });
    }

    Time longest{};    ///< by the clock on the wall
    Time longestOwn{}; ///< less what the thread has waited for a processor that others had
    QStringList said;

    bool notify(QObject *receiver, QEvent *event) override
    {
        // Events that a handler sends itself are a part of its work; those of a dialog's own loop are not.
        if (QThread::currentThread() != thread() || m_depth > QThread::currentThread()->loopLevel())
            return QApplication::notify(receiver, event);
        start();
        ++m_depth;
        const bool handled = QApplication::notify(receiver, event);
        --m_depth;
        const Time passed = wall() - m_began;
        longest = std::max(longest, passed);
        longestOwn = std::max(longestOwn, passed - (waited() - m_waited));
        const auto *label = qobject_cast<QLabel *>(m_status.data());
        if (label && (said.isEmpty() || said.last() != label->text()))
            said.append(label->text());
        start(); // for the rest of a handler that had an event loop of its own
        return handled;
    }

private:
    static Time wall() { return std::chrono::steady_clock::now().time_since_epoch(); }
    // The second number of three: nanoseconds.
    Time waited() const
    {
        std::array<char, 96> line{};
        const ssize_t got = ::pread(m_schedule.get(), line.data(), line.size() - 1, 0);
        const char *second = got > 0 ? std::find(line.data(), line.data() + got, ' ') : nullptr;
        return second ? Time(std::strtoll(second, nullptr, 10)) : Time{};
    }
    void start()
    {
        m_waited = waited();
        m_began = wall();
    }

    FileDescriptor m_schedule{::open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC)};
    QPointer<QObject> m_status; // asked what it is: a label sends events while it dies
    Time m_began{};
    Time m_waited{};
    int m_depth = 0;
};
