// Property lists as a phone sends them, and what the device tool reads from them.
#include "app_records.h"
#include "detail_lines.h"
#include "fuzzing.h"
#include "install_messages.h"
#include "plist_value.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestText = 4096 + 64; // a text of the phone, and words beside it
constexpr int kWhole = 100;

void checkApp(const QJsonValue &app)
{
    Require(!app["id"_L1].toString().isEmpty(), "an app has an identifier");
    Require(!app["name"_L1].toString().isEmpty(), "an app has a name");
}

void checkRecord(const QJsonValue &record)
{
    const QJsonObject object = record.toObject();
    for (const auto &value : object)
        Require(value.isString() && value.toString().size() <= kLongestText,
                "a record has texts, and short ones");
}

void checkRecords(const QJsonArray &records)
{
    std::for_each(records.begin(), records.end(), checkRecord);
    const QByteArray printed = QJsonDocument(records).toJson(QJsonDocument::Compact);
    Require(!printed.contains('\n') && QJsonDocument::fromJson(printed).isArray(),
            "an answer is one line of JSON");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Plist list = ParsePlist(BytesOf(data, size).toByteArray());

    QJsonArray apps;
    AppendAppRecords(list.get(), apps);
    if (const auto app = AppRecord(list.get()))
        apps.append(*app);
    std::for_each(apps.begin(), apps.end(), checkApp);
    checkRecords(apps);
    checkRecords(InfoLines(list.get(), PlistMember(list.get(), "disk")));
    checkRecords(BatteryLines(list.get(), PlistMember(list.get(), "gauge")));

    const InstallMessage message = ReadInstallMessage(list.get());
    Require(message.percent >= -1 && message.percent <= kWhole, "progress is a percentage");
    Require((message.kind == InstallMessage::Kind::Refused) == !message.refusal.message.isEmpty(),
            "a refusal has a reason");
    return 0;
}
