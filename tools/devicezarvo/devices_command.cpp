#include "commands.h"
#include "deadlines.h"
#include "diagnostics.h"
#include "phone_session.h"
#include "usbmuxd_service.h"

#include <QJsonArray>

#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// What the phones have said so far. Shared with threads that may outlive their use.
struct Roll
{
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<PhoneSummary> summaries;
    size_t waiting = 0;
};

/// Asks every phone on a thread of its own: a mute one would keep the others waiting.
std::shared_ptr<Roll> askAll(const QStringList &ids)
{
    auto roll = std::make_shared<Roll>();
    const auto count = static_cast<size_t>(ids.size());
    roll->summaries.resize(count);
    roll->waiting = count;
    for (size_t i = 0; i < count; ++i) {
        std::thread([roll, i, id = ids[static_cast<qsizetype>(i)]] {
            PhoneSummary summary = AskSummary(id);
            const std::lock_guard lock(roll->mutex);
            roll->summaries[i] = std::move(summary);
            --roll->waiting;
            roll->changed.notify_all();
        }).detach();
    }
    return roll;
}

QJsonObject phoneRecord(const QString &id, const PhoneSummary &summary)
{
    return {{"id"_L1, id},
            {"name"_L1, summary.name.isEmpty() ? u"iPhone"_s : summary.name},
            {"ios"_L1, summary.ios}};
}

} // namespace

void AnswerDevices(Watch &watch, Answer &answer)
{
    watch.step(CurrentDeadlines().phone, Fault::ServiceSilent);
    Failure failure;
    const auto ids = ConnectedPhones(&failure);
    if (!ids) {
        answer.fail(failure);
        return;
    }
    watch.step(CurrentDeadlines().devices);
    const auto roll = askAll(*ids);
    std::unique_lock lock(roll->mutex);
    const bool allAnswered =
        roll->changed.wait_for(lock, CurrentDeadlines().phone, [&roll] { return roll->waiting == 0; });
    QJsonArray devices;
    for (qsizetype i = 0; i < ids->size(); ++i)
        devices.append(phoneRecord((*ids)[i], roll->summaries[static_cast<size_t>(i)]));
    answer.give({{"devices"_L1, devices}});
    if (allAnswered)
        return;
    // A thread within the library cannot be called back; leaving in the ordinary way would pull the ground
    // from under it.
    Diagnose(u"%1 phones do not answer"_s.arg(roll->waiting));
    std::_Exit(answer.exitStatus());
}
