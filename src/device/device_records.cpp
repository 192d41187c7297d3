#include "device/device_records.h"

#include "core/tool_output.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

PhoneEntry parsePhone(const QJsonObject &object)
{
    return {JSONText(object["id"_L1]), JSONText(object["name"_L1]), JSONText(object["ios"_L1])};
}

AppRow parseApp(const QJsonObject &object)
{
    return {JSONText(object["id"_L1]),
            JSONText(object["name"_L1]),
            JSONText(object["version"_L1]),
            JSONText(object["storeID"_L1]),
            JSONText(object["storeVersionID"_L1]),
            JSONText(object["licenseAccount"_L1])};
}

DetailLine parseDetail(const QJsonObject &object)
{
    return {JSONText(object["label"_L1]), JSONText(object["value"_L1]), JSONText(object["key"_L1])};
}

template <typename Record>
QList<Record> parseList(const QJsonValue &value, Record (*parse)(const QJsonObject &))
{
    QList<Record> records;
    const QJsonArray array = value.toArray();
    records.reserve(array.size());
    for (const auto &element : array) {
        if (element.isObject())
            records.append(parse(element.toObject()));
    }
    return records;
}

} // namespace

DeviceReply ParseDeviceReply(const QJsonObject &object)
{
    DeviceReply reply;
    if (const auto error = object.constFind("error"_L1); error != object.constEnd())
        reply.error = JSONText(error.value());
    reply.success = JSONTruth(object["success"_L1]);
    reply.devices = parseList(object["devices"_L1], parsePhone);
    reply.apps = parseList(object["apps"_L1], parseApp);
    reply.details = parseList(object["details"_L1], parseDetail);
    return reply;
}
