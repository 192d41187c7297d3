#include "device/installed_apps.h"

#include "app/apps_table_model.h"
#include "app/shown_text.h"
#include "app/zarvo_app.h"

#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QTableView>

#include <unicode/coll.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

icu::UnicodeString toICU(const QString &text)
{
    return icu::UnicodeString(false, text.utf16(), static_cast<int32_t>(text.size()));
}

QString fromICU(const icu::UnicodeString &text)
{
    return QString(reinterpret_cast<const QChar *>(text.getBuffer()), text.length());
}

const icu::Locale &userLocale()
{
    static const icu::Locale locale =
        icu::Locale::createCanonical(QLocale::system().bcp47Name().toLatin1().constData());
    return locale;
}

std::unique_ptr<icu::Collator> makeCollator()
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(userLocale(), status));
    if (U_FAILURE(status))
        return nullptr;
    collator->setStrength(icu::Collator::SECONDARY); // differences of case are tertiary
    return collator;
}

// Comparing prepared keys is several times faster than comparing texts, from a few hundred names on.
template <typename Named>
std::vector<QByteArray> sortKeys(const QList<Named> &list)
{
    std::vector<QByteArray> keys;
    keys.reserve(static_cast<size_t>(list.size()));
    const auto collator = makeCollator();
    for (const Named &named : list) {
        if (!collator) {
            keys.push_back(named.name.toCaseFolded().toUtf8());
            continue;
        }
        const icu::UnicodeString name = toICU(named.name);
        QByteArray key(collator->getSortKey(name, nullptr, 0), Qt::Uninitialized);
        collator->getSortKey(name, reinterpret_cast<uint8_t *>(key.data()), static_cast<int32_t>(key.size()));
        keys.push_back(std::move(key));
    }
    return keys;
}

template <typename Named>
void sortByName(QList<Named> &list)
{
    const std::vector<QByteArray> keys = sortKeys(list);
    std::vector<qsizetype> order(keys.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return keys[static_cast<size_t>(a)] < keys[static_cast<size_t>(b)];
    });
    QList<Named> sorted;
    sorted.reserve(list.size());
    for (const qsizetype index : order)
        sorted.append(list[index]);
    list = std::move(sorted);
}

} // namespace

void SortByName(QList<AppRow> &apps)
{
    sortByName(apps);
}

void SortByName(QList<PhoneEntry> &phones)
{
    sortByName(phones);
}

QString SearchKey(const QString &text)
{
    const QByteArrayView language(userLocale().getLanguage());
    const bool dotless = language == "tr" || language == "az"; // there the capital I is the dotless one
    icu::UnicodeString folded(toICU(text));
    folded.foldCase(dotless ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
    return fromICU(folded).normalized(QString::NormalizationForm_C);
}

QList<AppSearchKeys> MakeSearchKeys(const QList<AppRow> &apps)
{
    QList<AppSearchKeys> keys;
    keys.reserve(apps.size());
    for (const AppRow &app : apps)
        keys.append({SearchKey(app.name), SearchKey(app.id)});
    return keys;
}

QList<AppRow> FilterApps(const QList<AppRow> &apps, const QList<AppSearchKeys> &keys, const QString &text)
{
    if (text.isEmpty())
        return apps;
    const QString wanted = SearchKey(text);
    QList<AppRow> rows;
    for (qsizetype i = 0; i < apps.size(); ++i) {
        if (keys[i].name.contains(wanted) || keys[i].id.contains(wanted))
            rows.append(apps[i]);
    }
    return rows;
}

std::optional<AppRow> FindApp(const QList<AppRow> &apps, const QString &id)
{
    if (id.isEmpty())
        return std::nullopt;
    const auto found =
        std::find_if(apps.begin(), apps.end(), [&](const AppRow &app) { return app.id == id; });
    return found == apps.end() ? std::nullopt : std::optional(*found);
}

QString OwnerText(const std::optional<AppRow> &app)
{
    if (!app)
        return u"Выберите приложение в таблице."_s;
    const QString separator =
        app->licenseAccount.isEmpty() ? QString() : u" • аккаунт исходной установки: "_s;
    return u"Выбрано: %1 %2%3%4"_s.arg(ShownName(app->name), ShownName(app->version), separator,
                                       ShownName(app->licenseAccount));
}

QString EmptyTableText(bool isRead, bool hasApps, const QString &trouble)
{
    if (!isRead)
        return trouble;
    return hasApps ? u"Ничего не найдено"_s : u"На iPhone нет приложений"_s;
}

void ZarvoApp::reloadApps()
{
    loadAppsAutomatic(true);
}

void ZarvoApp::loadAppsAutomatic(bool automatic)
{
    if (selectedPhone.isEmpty() || busy || auth)
        return;
    lastAppAttempt = QDateTime::currentDateTimeUtc();
    const QString phone = selectedPhone;
    const QString title = u"Чтение списка приложений…"_s;
    if (!automatic) {
        job(title, [this, phone](Error *error) { return readAppsWorker(phone, error); });
        return;
    }
    m_refusal.clear();
    busy = true;
    cancelled = false;
    updateControls();
    setStatus(title);
    const auto work = [this, phone] {
        Error error;
        const bool read = readAppsWorker(phone, &error);
        onMain([this, read, error] { finishAppsRead(read, error); });
    };
    if (!m_background.run(work))
        finishAppsRead(false, {});
}

void ZarvoApp::finishAppsRead(bool read, const Error &error)
{
    busy = false;
    activeTask.set(nullptr);
    updateControls();
    if (read)
        return;
    clearDeviceSelection();
    setStatus(
        u"Подключите и разблокируйте iPhone, подтвердите доверие к Mac и выберите устройство заново."_s);
    showPhoneTrouble(cancelled ? QString() : error.message);
    pollDevice(false);
}

bool ZarvoApp::readAppsWorker(const QString &phone, Error *error)
{
    std::optional<DeviceReply> reply = device({u"apps"_s, phone}, error);
    if (!reply)
        return false;
    SortByName(reply->apps);
    const QList<AppSearchKeys> keys = MakeSearchKeys(reply->apps);
    const std::optional<DeviceReply> info = device({u"info"_s, phone}, nullptr);
    onMain([this, phone, read = reply->apps, keys, lines = info ? info->details : QList<DetailLine>()] {
        if (selectedPhone != phone)
            return;
        apps = read;
        m_searchKeys = keys;
        details = lines;
        loadedPhone = phone;
        filterRows();
        setStatus(u"Прочитано приложений: %1. Выберите приложение в таблице."_s.arg(apps.size()));
    });
    return true;
}

void ZarvoApp::setApps(const QList<AppRow> &list)
{
    apps = list;
    m_searchKeys = MakeSearchKeys(list);
}

void ZarvoApp::filterRows()
{
    rows = FilterApps(apps, m_searchKeys, search->text());
    reloadTable();
    if (!selectRow(selectedApp)) {
        selectedApp.clear();
        setFieldText(storeID, {});
    }
    updateOwner();
    updateControls();
}

void ZarvoApp::controlTextDidChange(const QLineEdit *field)
{
    if (m_muted == 0 && field == search)
        filterRows();
}

int ZarvoApp::numberOfRowsInTableView() const
{
    return static_cast<int>(rows.size());
}

void ZarvoApp::reloadTable()
{
    const Muted muted(m_muted);
    m_tableModel->reload();
    updateTableNote();
}

void ZarvoApp::updateTableNote()
{
    const QString text =
        rows.isEmpty() ? EmptyTableText(!loadedPhone.isEmpty(), !apps.isEmpty(), m_trouble) : QString();
    m_phoneTrouble->setText(text);
    m_phoneTrouble->setVisible(!text.isEmpty());
}

bool ZarvoApp::selectRow(const QString &id)
{
    const Muted muted(m_muted);
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const AppRow &row) { return row.id == id; });
    if (id.isEmpty() || found == rows.end()) {
        table->selectionModel()->clear();
        return false;
    }
    table->selectRow(static_cast<int>(found - rows.begin()));
    return true;
}

void ZarvoApp::tableViewSelectionDidChange()
{
    if (m_muted > 0)
        return;
    const QModelIndexList selected = table->selectionModel()->selectedRows();
    const int index = selected.isEmpty() ? -1 : selected.first().row();
    const AppRow row = index >= 0 && index < numberOfRowsInTableView() ? rows[index] : AppRow();
    selectedApp = row.id;
    setFieldText(storeID, row.storeID);
    updateOwner();
    updateControls();
}

void ZarvoApp::updateOwner()
{
    ownerLabel->setText(OwnerText(target()));
}
