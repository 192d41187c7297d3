#include "app/apps_table_model.h"
#include "app/desktop_services.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "core/shown_text.h"
#include "store/account_check.h"
#include "store/app_download.h"
#include "store/batch_download.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

void ZarvoApp::download()
{
    const std::optional<AppRow> row = target();
    if (!row)
        return;
    // Taken now: the window lives on while the folder is chosen, and a phone that goes takes the field's text
    // with it.
    const auto start = [this, row = *row, identifier = window->typedStoreID(),
                        exact = window->isExactVersionWanted()](const QString &folder) {
        downloadInto(folder, row, identifier, exact);
    };
    chooseDirectory(u"IPA будет загружен с серверов Apple через аккаунт владельца."_s, start);
}

void ZarvoApp::downloadInto(const QString &folder, const AppRow &row, const QString &identifier, bool exact)
{
    const std::optional<QString> typed = TypedStoreID(identifier);
    if (!typed) {
        setStatus(u"ID App Store должен быть положительным целым числом."_s);
        return;
    }
    job(u"Проверка входа перед загрузкой…"_s,
        [this, row, numericID = *typed, folder, exact](Job &job, Error *error) {
            const auto email = accountWorker(job, error);
            if (!email)
                return false;
            const auto file = downloadWorker(job, row, numericID, folder, exact, error);
            if (!file)
                return false;
            onMain([this, email = *email, file = *file] { showDownload(email, file); });
            return true;
        });
}

void ZarvoApp::showDownload(const QString &email, const QString &file)
{
    const QString name = ShownName(QFileInfo(file).fileName());
    showAccount(email);
    ipa = file;
    lastDownload = file;
    window->showIPA(name);
    setStatus(u"IPA сохранён: %1"_s.arg(name));
    setTransfer(file);
}

void ZarvoApp::downloadAll()
{
    const QList<AppRow> all = window->apps()->apps();
    if (all.isEmpty())
        return;
    const auto work = [this, all](const QString &folder, bool exact, Job &job, Error *error) {
        if (!accountWorker(job, error))
            return false;
        const StayAwake awake(u"Загрузка приложений"_s, m_background);
        const auto outcome = downloadEach(job, all, folder, exact, error);
        if (!outcome)
            return false;
        setStatus(outcome->summary);
        setTransfer(outcome->folder);
        onMain([this, summary = outcome->summary] { notifyUnlessWatched(summary); });
        return true;
    };
    const auto start = [this, work](const QString &folder) {
        const bool exact = window->isExactVersionWanted();
        job(u"Проверка входа…"_s,
            [work, folder, exact](Job &job, Error *error) { return work(folder, exact, job, error); });
    };
    chooseDirectory(
        u"Будет обработан весь список: %1 приложений. Недоступные приложения будут отмечены в отчёте."_s.arg(
            all.size()),
        start);
}
