#include "device/device_discovery.h"

#include "app/elided_text.h"
#include "app/shown_text.h"
#include "app/zarvo_app.h"
#include "device/device_tool_client.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kPollTimeout{15};

QString pickedPhone(const QComboBox *picker)
{
    return picker->currentData().toString();
}

} // namespace

bool HasPhone(const QList<PhoneEntry> &phones, const QString &id)
{
    return std::any_of(phones.begin(), phones.end(), [&](const PhoneEntry &phone) { return phone.id == id; });
}

PhoneEntry FindPhone(const QList<PhoneEntry> &phones, const QString &id)
{
    const auto found =
        std::find_if(phones.begin(), phones.end(), [&](const PhoneEntry &phone) { return phone.id == id; });
    return found == phones.end() ? PhoneEntry() : *found;
}

QString PhoneTitle(const PhoneEntry &phone)
{
    return u"%1 · iOS %2"_s.arg(ShownName(phone.name), ShownName(phone.ios));
}

QString PhonePrompt(const QList<PhoneEntry> &phones)
{
    return phones.isEmpty() ? u"Подключите iPhone кабелем и выберите его в списке."_s
                            : u"iPhone найден. Выберите устройство в списке выше."_s;
}

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
    const QString path = tool(u"devicezarvo"_s);
    const bool started = m_background.run([this, path] {
        RunHooks hooks;
        hooks.cancelled = [this] { return m_terminating.load(); };
        Error error;
        const auto result = ZarvoCommand(path, {u"devices"_s}, kPollTimeout, hooks, &error);
        const QList<PhoneEntry> found = DiscoveredPhones(result, &error);
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
        rebuildPicker();
    showPickedPhone(hasGone ? QString() : selectedPhone);
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

void ZarvoApp::rebuildPicker()
{
    const Muted muted(m_muted);
    phonePicker->hidePopup(); // else the lines would move under the user's pointer
    phonePicker->clear();
    phonePicker->addItem(u"Выберите iPhone"_s);
    for (const PhoneEntry &phone : std::as_const(phones)) {
        phonePicker->addItem(PhoneTitle(phone), phone.id);
        phonePicker->setItemData(phonePicker->count() - 1, WholeTextTip(PhoneTitle(phone)), Qt::ToolTipRole);
    }
}

void ZarvoApp::showPickedPhone(const QString &id)
{
    const Muted muted(m_muted);
    phonePicker->setCurrentIndex(id.isEmpty() ? 0 : std::max(0, phonePicker->findData(id)));
}

void ZarvoApp::selectPhone()
{
    const QString chosen = pickedPhone(phonePicker);
    if (m_muted > 0 || chosen == selectedPhone)
        return;
    clearDeviceSelection();
    if (chosen.isEmpty() || !HasPhone(phones, chosen))
        return;
    selectedPhone = chosen;
    showPickedPhone(chosen);
    showPhoneTrouble({});
    rememberDevice(FindPhone(phones, chosen));
    loadAppsAutomatic(true);
}

void ZarvoApp::clearDeviceSelection()
{
    selectedPhone.clear();
    loadedPhone.clear();
    selectedApp.clear();
    setApps({});
    rows.clear();
    details.clear();
    setFieldText(search, {});
    setFieldText(storeID, {});
    showPickedPhone({});
    reloadTable();
    updateOwner();
    updateControls();
    setTransfer({});
    setStatus(prompt());
}
