#include "answer.h"

#include "diagnostics.h"

#include <QByteArrayView>
#include <QJsonDocument>

#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

QByteArray lineOf(const QJsonObject &reply)
{
    return QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n';
}

bool writeAll(QByteArrayView rest) noexcept
{
    while (!rest.isEmpty()) {
        const ssize_t written = ::write(STDOUT_FILENO, rest.data(), static_cast<size_t>(rest.size()));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        rest = rest.sliced(written);
    }
    return true;
}

} // namespace

Answer::Answer(bool installing)
    : m_installing(installing)
    , m_crashLine(lineFor(FailureOf(Fault::BadReply)))
{
}

void Answer::give(const QJsonObject &reply)
{
    write(lineOf(reply), 0);
}

void Answer::fail(const Failure &failure)
{
    // The answer first: whoever should read the diagnostics may have stopped.
    write(lineFor(failure), 1);
    Diagnose(u"failed, code %1"_s.arg(failure.code));
}

int Answer::crash() noexcept
{
    // Not under the lock: the thread that crashed may hold it.
    if (!m_given.exchange(true))
        writeAll(m_crashLine);
    return m_status;
}

int Answer::exitStatus() const
{
    const std::lock_guard lock(m_mutex);
    return m_status;
}

QByteArray Answer::lineFor(const Failure &failure) const
{
    QJsonObject reply{{"error"_L1, failure.message}};
    if (m_installing)
        reply["success"_L1] = false;
    return lineOf(reply);
}

void Answer::write(const QByteArray &line, int status)
{
    const std::lock_guard lock(m_mutex);
    if (m_given.exchange(true))
        return;
    // A status of success only once somebody has the answer.
    if (writeAll(line))
        m_status = status;
}
