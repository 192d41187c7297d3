#include "store/account_check.h"

#include "app/main_window.h"
#include "app/shown_text.h"
#include "app/zarvo_app.h"
#include "core/tool_output.h"
#include "signin/sign_in_session.h"

#include <QLabel>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kCheckTimeout{30};

} // namespace

std::optional<QString> ConfirmedAccount(const QString &output)
{
    std::optional<QString> account;
    VisitJSON(output, [&account](const QJsonObject &object) {
        if (JSONTruth(object["success"_L1]))
            account = JSONText(object["email"_L1]);
        return !account;
    });
    return account;
}

std::optional<QString> ZarvoApp::accountWorker(Error *error)
{
    const auto output = store({u"auth"_s, u"info"_s}, kCheckTimeout, {}, error);
    if (!output)
        return std::nullopt;
    std::optional<QString> email = ConfirmedAccount(*output);
    if (!email)
        Fail(error, ZarvoError(u"Вход не подтверждён. Выполните вход в Apple Account."_s));
    m_known.addAccount(email.value_or(QString())); // before the window hears of it
    return email;
}

void ZarvoApp::checkAccount()
{
    const bool quiet = quietNextJob;
    job(u"Проверка входа…"_s, [this, quiet](Error *error) {
        const std::optional<QString> email = accountWorker(error);
        onMain([this, email, quiet] {
            if (!email) {
                accountLabel->setText(u"Вход не подтверждён"_s);
                account.clear();
                return;
            }
            showAccount(*email);
            setStatus(quiet ? prompt() : u"Вход подтверждён."_s);
            updateOwner();
        });
        return email.has_value();
    });
}

void ZarvoApp::showAccount(const QString &email)
{
    account = email;
    accountLabel->setText(u"Вход выполнен: %1"_s.arg(ShownName(email)));
}

void ZarvoApp::login()
{
    if (busy || hasSheet())
        return;
    const std::optional<AppRow> app = target();
    const QString proposed = app && !app->licenseAccount.isEmpty() ? OneLine(app->licenseAccount) : account;
    auth = std::make_unique<LegacyAuth>(window.get(), tool(u"ipatool"_s), proposed,
                                        [this](bool success) { finishLogin(success); });
    auth->show();
}

void ZarvoApp::finishLogin(bool success)
{
    typedAccount = auth->typedAccount();
    auth.release()->deleteLater(); // it is calling this
    if (success)
        checkAccount();
    else
        pollDevice(false);
}
