#include "app/information_window.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "core/shown_text.h"
#include "device/device_discovery.h"
#include "device/device_information.h"

using namespace Qt::StringLiterals;

// What the program was started with stays said, whatever the first polls find.
QString ZarvoApp::prompt() const
{
    const QString text = PhonePrompt(phones);
    return m_refusal.isEmpty() ? text : m_refusal + u' ' + text;
}

void ZarvoApp::refresh()
{
    pollDevice(true);
}

void ZarvoApp::pollDevice(bool)
{
    if (busy || auth || checkingDevice)
        return;
    checkingDevice = true;
    m_poll = std::make_shared<Job>(m_resourcePath);
    const bool started = m_background.run([this, poll = m_poll] {
        Error error;
        const QList<PhoneEntry> found = discoverPhones(*poll, &error);
        onMain([this, found, trouble = error.message] {
            checkingDevice = false;
            if (busy || auth)
                return;
            applyDiscoveredPhones(found, trouble);
        });
    });
    if (!started)
        checkingDevice = false;
}

void ZarvoApp::applyDiscoveredPhones(const QList<PhoneEntry> &found, const QString &trouble)
{
    const bool hasGone = !selectedPhone.isEmpty() && !HasPhone(found, selectedPhone);
    const bool changed = phones != found;
    phones = found;
    // The same list again would only disturb a list that the user has just unfolded.
    if (changed)
        window->showPhones(phones);
    window->showPickedPhone(hasGone ? QString() : selectedPhone);
    if (hasGone)
        clearDeviceSelection();
    else if (changed && selectedPhone.isEmpty())
        setStatus(prompt());
    // While the same phones are listed, what is said there is why the apps of one of them could not be read.
    if (changed || found.isEmpty())
        showPhoneTrouble(trouble);
    updateControls();
    refreshHistory();
}

// What nobody asked for opens no alert; its reason stands where the apps of a phone would be.
void ZarvoApp::showPhoneTrouble(const QString &reason)
{
    m_trouble = ShownExplanation(reason);
    updateTableNote();
}

void ZarvoApp::selectPhone(const QString &id)
{
    if (id == selectedPhone)
        return;
    clearDeviceSelection();
    if (id.isEmpty() || !HasPhone(phones, id))
        return;
    selectedPhone = id;
    window->showPickedPhone(id);
    showPhoneTrouble({});
    rememberDevice(FindPhone(phones, id));
    loadAppsAutomatic(true);
}

void ZarvoApp::clearDeviceSelection()
{
    selectedPhone.clear();
    loadedPhone.clear();
    selectedApp.clear();
    details.clear();
    setApps({}); // before the search, whose change filters
    window->showSearch({});
    window->showStoreID({});
    window->showPickedPhone({});
    setTransfer({});
    setStatus(prompt());
}

void ZarvoApp::showInfo()
{
    if (selectedPhone.isEmpty())
        return;
    job(u"Чтение сведений об iPhone…"_s, [this, phone = selectedPhone](Job &job, Error *error) {
        const auto text = informationWorker(job, phone, error);
        if (!text)
            return false;
        onMain([this, text = *text] { showDetails(text); });
        return true;
    });
}

void ZarvoApp::showDetails(const QString &text)
{
    infoWindow = OpenInformationWindow(window.get(), text);
    setStatus(u"Сведения обновлены. Недоступные показатели отмечены явно."_s);
}
