#include "app_records.h"

#include "plist_value.h"

using namespace Qt::StringLiterals;

namespace {

QString firstText(plist_t app, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        if (QString text = PlistText(PlistMember(app, key)); !text.isEmpty())
            return text;
    }
    return {};
}

void addStoreMetadata(plist_t app, QJsonObject &record)
{
    // A property list within the property list. Apps that came from elsewhere have none.
    const Plist metadata = ParsePlist(PlistBytes(PlistMember(app, "iTunesMetadata")));
    const plist_t download = PlistMember(metadata.get(), "com.apple.iTunesStore.downloadInfo");
    const plist_t account = PlistMember(download, "accountInfo");
    const auto add = [&record](QLatin1StringView key, plist_t value) {
        if (const QString text = PlistText(value); !text.isEmpty())
            record[key] = text;
    };
    add("storeID"_L1, PlistMember(metadata.get(), "itemId"));
    add("storeVersionID"_L1, PlistMember(metadata.get(), "softwareVersionExternalIdentifier"));
    add("licenseAccount"_L1, PlistMember(account, "AppleID"));
}

} // namespace

std::optional<QJsonObject> AppRecord(plist_t app)
{
    const QString id = PlistText(PlistMember(app, "CFBundleIdentifier"));
    if (id.isEmpty())
        return std::nullopt;
    QString name = firstText(app, {"CFBundleDisplayName", "CFBundleName"});
    if (name.isEmpty())
        name = id.section(u'.', -1, -1, QString::SectionSkipEmpty);
    QJsonObject record{
        {"id"_L1, id},
        {"name"_L1, name.isEmpty() ? id : name},
        {"version"_L1, firstText(app, {"CFBundleShortVersionString", "CFBundleVersion"})},
    };
    addStoreMetadata(app, record);
    return record;
}

void AppendAppRecords(plist_t page, QJsonArray &apps)
{
    const plist_t list = PlistMember(page, "CurrentList");
    if (!list || plist_get_node_type(list) != PLIST_ARRAY)
        return;
    const std::uint32_t count = plist_array_get_size(list);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (const auto record = AppRecord(plist_array_get_item(list, i)))
            apps.append(*record);
    }
}
