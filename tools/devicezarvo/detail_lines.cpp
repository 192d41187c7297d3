#include "detail_lines.h"

#include "device/device_records.h"
#include "model_names.h"
#include "plist_value.h"

#include <QJsonObject>
#include <QLocale>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// What lies beyond these is no reading but a misunderstanding.
constexpr quint64 kMostCycles = 100'000;
constexpr quint64 kMostCapacity = 1'000'000;          // mAh
constexpr quint64 kMostBytes = 1'000'000'000'000'000; // a petabyte
constexpr qint64 kColdest = -4'000;                   // hundredths of °C
constexpr qint64 kHottest = 12'000;

const QLocale &russian()
{
    static const QLocale locale(QLocale::Russian, QLocale::Russia);
    return locale;
}

/// Adds a line; an empty value is one that the phone did not give.
void add(QJsonArray &lines, const QString &label, const QString &value, QLatin1StringView key = {})
{
    QJsonObject line{{"label"_L1, label}, {"value"_L1, value.isEmpty() ? u"недоступно"_s : value}};
    if (!key.isEmpty())
        line.insert("key"_L1, key);
    lines.append(line);
}

std::optional<quint64> wholeUpTo(quint64 limit, plist_t node)
{
    const auto number = PlistWhole(node);
    return number && *number <= limit ? number : std::nullopt;
}

QString bytesText(plist_t node)
{
    const auto bytes = wholeUpTo(kMostBytes, node);
    return bytes ? russian().formattedDataSize(static_cast<qint64>(*bytes), 1, QLocale::DataSizeSIFormat)
                 : QString();
}

QString systemText(plist_t values)
{
    const QString version = PlistText(PlistMember(values, "ProductVersion"));
    const QString build = PlistText(PlistMember(values, "BuildVersion"));
    return version.isEmpty() || build.isEmpty() ? version : u"%1 (%2)"_s.arg(version, build);
}

/// A reading of the battery: newer systems keep some of them one level deeper.
plist_t gaugeMember(plist_t gauge, const char *key)
{
    const plist_t direct = PlistMember(gauge, key);
    return direct ? direct : PlistMember(PlistMember(gauge, "BatteryData"), key);
}

std::optional<quint64> capacity(plist_t gauge, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        const auto reading = wholeUpTo(kMostCapacity, gaugeMember(gauge, key));
        if (reading && *reading > 0)
            return reading;
    }
    return std::nullopt;
}

QString capacityText(std::optional<quint64> reading)
{
    return reading ? u"%1 мА·ч"_s.arg(*reading) : QString();
}

QString chargeText(plist_t state)
{
    const auto percent = wholeUpTo(100, PlistMember(state, "BatteryCurrentCapacity"));
    return percent ? u"%1 %"_s.arg(*percent) : QString();
}

QString chargingText(plist_t state)
{
    const auto charging = PlistTruth(PlistMember(state, "BatteryIsCharging"));
    const auto connected = PlistTruth(PlistMember(state, "ExternalConnected"));
    const auto full = PlistTruth(PlistMember(state, "FullyCharged"));
    if (full.value_or(false))
        return u"заряжен полностью"_s;
    if (charging.value_or(false))
        return u"заряжается"_s;
    if (connected.value_or(false))
        return u"питание подключено, не заряжается"_s;
    return charging || connected ? u"работает от аккумулятора"_s : QString();
}

QString healthText(std::optional<quint64> nominal, std::optional<quint64> design)
{
    if (!nominal || !design)
        return {};
    // A fresh battery holds more than it was designed for.
    const auto percent = std::lround(100.0 * static_cast<double>(*nominal) / static_cast<double>(*design));
    return u"%1 %"_s.arg(std::min(percent, 100L));
}

QString temperatureText(plist_t gauge)
{
    const auto reading = PlistWhole(gaugeMember(gauge, "Temperature"));
    if (!reading)
        return {};
    const auto hundredths = static_cast<qint64>(*reading);
    if (hundredths < kColdest || hundredths > kHottest)
        return {};
    return russian().toString(static_cast<double>(hundredths) / 100, 'f', 1) + u" °C"_s;
}

} // namespace

QJsonArray InfoLines(plist_t values, plist_t disk)
{
    const auto text = [values](const char *key) { return PlistText(PlistMember(values, key)); };
    const plist_t available = PlistMember(disk, "AmountDataAvailable");
    QJsonArray lines;
    add(lines, u"Имя"_s, text("DeviceName"));
    add(lines, u"Модель"_s, ModelName(text("ProductType")));
    add(lines, u"Версия iOS"_s, systemText(values));
    add(lines, u"Серийный номер"_s, text("SerialNumber"), kSerialNumberKey);
    add(lines, u"UDID"_s, text("UniqueDeviceID"));
    add(lines, u"Память, всего"_s, bytesText(PlistMember(disk, "TotalDiskCapacity")));
    add(lines, u"Память, свободно"_s,
        bytesText(available ? available : PlistMember(disk, "TotalDataAvailable")));
    add(lines, u"Часовой пояс"_s, text("TimeZone"));
    add(lines, u"Номер телефона"_s, text("PhoneNumber"), kPhoneNumberKey);
    return lines;
}

QJsonArray BatteryLines(plist_t state, plist_t gauge)
{
    const auto design = capacity(gauge, {"DesignCapacity"});
    const auto nominal = capacity(gauge, {"NominalChargeCapacity", "AppleRawMaxCapacity"});
    const auto cycles = wholeUpTo(kMostCycles, gaugeMember(gauge, "CycleCount"));
    QJsonArray lines;
    add(lines, u"Заряд"_s, chargeText(state));
    add(lines, u"Зарядка"_s, chargingText(state));
    add(lines, u"Состояние аккумулятора (оценка)"_s, healthText(nominal, design));
    add(lines, u"Циклы перезарядки"_s, cycles ? QString::number(*cycles) : QString());
    add(lines, u"Ёмкость по проекту"_s, capacityText(design));
    add(lines, u"Текущая ёмкость"_s, capacityText(nominal));
    add(lines, u"Температура"_s, temperatureText(gauge));
    return lines;
}
