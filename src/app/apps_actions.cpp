#include "app/apps_table_model.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"

using namespace Qt::StringLiterals;

void ZarvoApp::reloadApps()
{
    loadAppsAutomatic(true);
}

void ZarvoApp::loadAppsAutomatic(bool automatic)
{
    if (selectedPhone.isEmpty() || busy || auth)
        return;
    lastAppAttempt = QDateTime::currentDateTimeUtc();
    const QString title = u"Чтение списка приложений…"_s;
    const auto read = [this, phone = selectedPhone](Job &job, Error *error) {
        const auto installed = readAppsWorker(job, phone, error);
        if (!installed)
            return false;
        onMain([this, phone, installed = *installed] { showApps(phone, installed); });
        return true;
    };
    if (!automatic) {
        job(title, read);
        return;
    }
    m_refusal.clear();
    busy = true;
    m_job = makeJob();
    updateControls();
    setStatus(title);
    const auto work = [this, job = m_job, read] {
        Error error;
        const bool done = read(*job, &error);
        onMain([this, done, error] { finishAppsRead(done, error); });
    };
    if (!m_background.run(work))
        finishAppsRead(false, {});
}

void ZarvoApp::showApps(const QString &phone, const InstalledApps &installed)
{
    if (selectedPhone != phone)
        return;
    details = installed.details;
    loadedPhone = phone;
    setApps(installed.apps);
    setStatus(u"Прочитано приложений: %1. Выберите приложение в таблице."_s.arg(installed.apps.rows.size()));
}

void ZarvoApp::finishAppsRead(bool read, const Error &error)
{
    busy = false;
    updateControls();
    if (read)
        return;
    clearDeviceSelection();
    setStatus(
        u"Подключите и разблокируйте iPhone, подтвердите доверие к Mac и выберите устройство заново."_s);
    showPhoneTrouble(m_job->isCancelled() ? QString() : error.message);
    pollDevice(false);
}

void ZarvoApp::setApps(const SearchableApps &apps)
{
    window->apps()->setApps(apps, window->searchText());
    showRows();
}

void ZarvoApp::filterRows()
{
    window->apps()->setFilter(window->searchText());
    showRows();
}

void ZarvoApp::showRows()
{
    updateTableNote();
    const int row = window->apps()->indexOf(selectedApp);
    if (row < 0) {
        selectedApp.clear();
        window->showStoreID({});
    }
    window->showChosenApp(row);
    updateOwner();
    updateControls();
}

void ZarvoApp::updateTableNote()
{
    const AppsTableModel *apps = window->apps();
    const bool isEmpty = apps->rowCount() == 0;
    window->showTableNote(isEmpty ? EmptyTableText(!loadedPhone.isEmpty(), !apps->apps().isEmpty(), m_trouble)
                                  : QString());
}

void ZarvoApp::tableViewSelectionDidChange(int row)
{
    const AppRow app = window->apps()->row(row);
    selectedApp = app.id;
    window->showStoreID(app.storeID);
    updateOwner();
    updateControls();
}

std::optional<AppRow> ZarvoApp::target() const
{
    return FindApp(window->apps()->apps(), selectedApp);
}

void ZarvoApp::updateOwner()
{
    window->showOwner(OwnerText(target()));
}
