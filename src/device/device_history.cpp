#include "device/device_history.h"

#include "core/shown_text.h"
#include "device/installed_apps.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

bool isText(const QVariant &value)
{
    return value.typeId() == QMetaType::QString;
}

} // namespace

QList<PhoneEntry> Remembered(const QList<PhoneEntry> &history, const PhoneEntry &phone)
{
    QList<PhoneEntry> entries = Forgotten(history, phone.id);
    entries.append({phone.id, phone.name.isEmpty() ? u"iPhone"_s : phone.name, phone.ios});
    SortByName(entries);
    return entries;
}

QList<PhoneEntry> Forgotten(QList<PhoneEntry> history, const QString &id)
{
    history.removeIf([&](const PhoneEntry &entry) { return entry.id == id; });
    return history;
}

QVariantList StoredHistory(const QList<PhoneEntry> &history)
{
    QVariantList stored;
    for (const PhoneEntry &entry : history)
        stored.append(QVariantMap{{u"id"_s, entry.id}, {u"name"_s, entry.name}, {u"ios"_s, entry.ios}});
    return stored;
}

QList<PhoneEntry> LoadedHistory(const QVariant &stored)
{
    QList<PhoneEntry> history;
    const QVariantList elements = stored.toList();
    for (const QVariant &element : elements) {
        if (element.typeId() != QMetaType::QVariantMap)
            continue;
        const QVariantMap entry = element.toMap();
        const QVariant id = entry.value(u"id"_s);
        const QVariant name = entry.value(u"name"_s);
        const QVariant ios = entry.value(u"ios"_s);
        if (isText(id) && !id.toString().isEmpty() && isText(name))
            history.append({id.toString(), name.toString(), isText(ios) ? ios.toString() : QString()});
    }
    return history;
}

QString HistoryLine(const PhoneEntry &entry, bool connected)
{
    return u"%1\niOS %2 • %3"_s.arg(ShownName(entry.name), ShownName(entry.ios),
                                    connected ? u"Подключён"_s : u"Не подключён"_s);
}
