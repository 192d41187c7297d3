#include "answer.h"

#include "diagnostics.h"

#include <QJsonDocument>

#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

void Answer::give(const QJsonObject &reply)
{
    write(reply, 0);
}

void Answer::fail(const Failure &failure)
{
    Diagnose(u"failed, code %1"_s.arg(failure.code));
    QJsonObject reply{{"error"_L1, failure.message}};
    if (m_installing)
        reply["success"_L1] = false;
    write(reply, 1);
}

int Answer::exitStatus() const
{
    const std::lock_guard lock(m_mutex);
    return m_status;
}

void Answer::write(const QJsonObject &reply, int status)
{
    const std::lock_guard lock(m_mutex);
    if (m_given)
        return;
    m_given = true;
    m_status = status;
    QByteArray rest = QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n';
    while (!rest.isEmpty()) {
        const ssize_t written = ::write(STDOUT_FILENO, rest.constData(), static_cast<size_t>(rest.size()));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            m_status = 1; // nobody has the answer
            return;
        }
        rest.remove(0, written);
    }
}
