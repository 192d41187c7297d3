#include "device/installed_apps.h"

#include "core/shown_text.h"
#include "device/device_tool_client.h"

#include <QLocale>

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

SearchableApps MakeSearchable(const QList<AppRow> &rows)
{
    SearchableApps apps{rows, {}};
    apps.keys.reserve(rows.size());
    for (const AppRow &row : rows)
        apps.keys.append({SearchKey(row.name), SearchKey(row.id)});
    return apps;
}

std::vector<qsizetype> MatchingApps(const SearchableApps &apps, const QString &text)
{
    const QString wanted = SearchKey(text);
    std::vector<qsizetype> positions;
    positions.reserve(static_cast<size_t>(apps.rows.size()));
    for (qsizetype i = 0; i < apps.rows.size(); ++i) {
        if (text.isEmpty() || apps.keys[i].name.contains(wanted) || apps.keys[i].id.contains(wanted))
            positions.push_back(i);
    }
    return positions;
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

std::optional<InstalledApps> readAppsWorker(Job &job, const QString &phone, Error *error)
{
    std::optional<DeviceReply> reply = device(job, {u"apps"_s, phone}, error);
    if (!reply)
        return std::nullopt;
    SortByName(reply->apps);
    const std::optional<DeviceReply> info = device(job, {u"info"_s, phone});
    return InstalledApps{MakeSearchable(reply->apps), info ? info->details : QList<DetailLine>()};
}
