// The one answer of a run.
#pragma once

#include "fault.h"

#include <QByteArray>
#include <QJsonObject>

#include <atomic>
#include <mutex>

/// Writes the answer to standard output, once: whoever comes first gives it, later answers are dropped. Any
/// thread.
class Answer
{
public:
    /// A failure of an installation says `success` too.
    explicit Answer(bool installing);

    /// One line of JSON; exit status 0.
    void give(const QJsonObject &reply);
    /// The failure's sentence; exit status 1.
    void fail(const Failure &failure);
    /// The answer of a program that has just crashed; callable from a signal handler. What to exit with.
    int crash() noexcept;
    /// What the program is to exit with: 1 until a success was given.
    int exitStatus() const;

private:
    QByteArray lineFor(const Failure &failure) const;
    void write(const QByteArray &line, int status);

    const bool m_installing;
    const QByteArray m_crashLine; // made while memory can still be had
    mutable std::mutex m_mutex;   // held while writing: nobody ends the program in the middle of an answer
    std::atomic<bool> m_given = false;
    std::atomic<int> m_status = 1;
};
