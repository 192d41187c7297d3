#include "store/store_tool_client.h"

#include "app/zarvo_app.h"
#include "core/tool_output.h"
#include "store/store_failure_messages.h"

#include <QDir>

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

void ZarvoApp::learnSecrets()
{
    m_known.addHomeFolder(QDir::homePath());
    m_known.addHomeFolder(QDir(QDir::homePath()).canonicalPath());
    m_known.addAccount(account);
    m_known.addAccount(typedAccount);
    for (const AppRow &app : apps)
        m_known.addAccount(app.licenseAccount);
    for (const PhoneEntry &phone : phones + savedPhones) {
        m_known.addPhoneIdentifier(phone.id);
        m_known.addPhoneName(phone.name);
    }
    m_known.addDetails(details);
}

std::optional<QString> ZarvoApp::store(const QStringList &arguments, RunTimeout timeout,
                                       const std::function<void()> &tick, Error *error)
{
    const QStringList all = QStringList{u"--non-interactive"_s, u"--format"_s, u"json"_s} + arguments;
    Error failure;
    const auto result = command(u"ipatool"_s, all, timeout, tick, &failure);
    if (!result) {
        if (failure.kind == Error::Kind::Mute)
            failure.advice = MuteToolAdvice();
        Fail(error, failure);
        return std::nullopt;
    }
    const QString output = CombinedOutput(*result);
    if (StoreRunSucceeded(result->code, output))
        return output;
    Fail(error, StoreRunError(*result, m_known));
    return std::nullopt;
}
