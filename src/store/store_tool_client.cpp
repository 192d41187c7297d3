#include "store/store_tool_client.h"

#include "app/zarvo_app.h"
#include "core/tool_output.h"
#include "store/store_failure_messages.h"

using namespace Qt::StringLiterals;

namespace {

bool saysItFailed(const QJsonObject &object)
{
    const auto success = object.constFind("success"_L1);
    return object.contains("error"_L1) || (success != object.constEnd() && !JSONTruth(*success));
}

} // namespace

QString CombinedOutput(const ToolResult &result)
{
    return result.out + u'\n' + result.err;
}

bool StoreRunSucceeded(int code, const QString &output)
{
    if (code != 0)
        return false;
    bool failed = false;
    VisitJSON(output, [&failed](const QJsonObject &object) {
        failed = saysItFailed(object);
        return !failed;
    });
    return !failed;
}

std::optional<QString> ZarvoApp::store(const QStringList &arguments, RunTimeout timeout,
                                       const std::function<void()> &tick, Error *error)
{
    const QStringList all = QStringList{u"--non-interactive"_s, u"--format"_s, u"json"_s} + arguments;
    const auto result = command(u"ipatool"_s, all, timeout, tick, error);
    if (!result)
        return std::nullopt;
    const QString output = CombinedOutput(*result);
    if (StoreRunSucceeded(result->code, output))
        return output;
    Fail(error, Error{ZarvoStoreFailure(*result), StoreToolAdvice(*result)});
    return std::nullopt;
}
