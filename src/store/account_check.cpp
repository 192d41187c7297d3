#include "store/account_check.h"

#include "store/known_secrets.h"
#include "store/store_tool_client.h"

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kCheckTimeout{30};

} // namespace

std::optional<QString> accountWorker(Job &job, Error *error)
{
    const auto reply = store(job, {u"auth"_s, u"info"_s}, kCheckTimeout, {}, error);
    if (!reply)
        return std::nullopt;
    if (!reply->account)
        Fail(error, ZarvoError(u"Вход не подтверждён. Выполните вход в Apple Account."_s));
    else if (job.secrets())
        job.secrets()->addAccount(*reply->account);
    return reply->account;
}
