#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "core/shown_text.h"
#include "signin/sign_in_session.h"
#include "store/account_check.h"

using namespace Qt::StringLiterals;

void ZarvoApp::checkAccount()
{
    const bool quiet = quietNextJob;
    job(u"Проверка входа…"_s, [this, quiet](Job &job, Error *error) {
        const std::optional<QString> email = accountWorker(job, error);
        onMain([this, email, quiet] {
            if (!email) {
                window->showAccount(u"Вход не подтверждён"_s);
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
    window->showAccount(u"Вход выполнен: %1"_s.arg(ShownName(email)));
}

void ZarvoApp::login()
{
    if (busy || auth || hasSheet())
        return;
    const std::optional<AppRow> app = target();
    const QString proposed = app && !app->licenseAccount.isEmpty() ? app->licenseAccount : account;
    auth = std::make_unique<LegacyAuth>(window.get(), Job(m_resourcePath).tool(u"ipatool"_s), proposed,
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
