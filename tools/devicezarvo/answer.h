// The one answer of a run.
#pragma once

#include "fault.h"

#include <QJsonObject>

#include <mutex>

/// Writes the answer to standard output, once: whoever comes first gives it, later answers are dropped. Any
/// thread.
class Answer
{
public:
    /// A failure of an installation says `success` too.
    explicit Answer(bool installing)
        : m_installing(installing)
    {
    }

    /// One line of JSON; exit status 0.
    void give(const QJsonObject &reply);
    /// The failure's sentence; exit status 1.
    void fail(const Failure &failure);
    /// What the program is to exit with: 1 until a success was given.
    int exitStatus() const;

private:
    void write(const QJsonObject &reply, int status);

    const bool m_installing;
    mutable std::mutex m_mutex; // held while writing: nobody ends the program in the middle of an answer
    bool m_given = false;
    int m_status = 1;
};
