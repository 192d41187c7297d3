#include "core/tool_output.h"
#include "device/device_discovery.h"
#include "device/device_records.h"
#include "device/device_tool_client.h"
#include "device/installed_apps.h"
#include "support/rows.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString kUnlock = u"Не удалось связаться с iPhone. Разблокируйте его и подтвердите доверие к Mac."_s;

} // namespace

class DeviceRulesTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("LC_ALL", "ru_RU.UTF-8"); }

private Q_SLOTS:
    void readsReplies()
    {
        const auto objects =
            ZarvoJSON(u"{\"devices\":[{\"id\":\"P\",\"name\":\"Ю\",\"ios\":17.4},{}],"
                      "\"apps\":[{\"id\":\"a.b\",\"name\":\"B\",\"version\":2,\"storeID\":9007199254740993,"
                      "\"storeVersionID\":\"8\",\"licenseAccount\":\"x@y.z\",\"more\":1}],"
                      "\"details\":[{\"label\":\"L\",\"value\":3,\"key\":\"k\"}],\"success\":true}"_s);
        QCOMPARE(objects.size(), 1);
        const DeviceReply reply = ParseDeviceReply(objects.first());
        QCOMPARE(reply.devices, (QList<PhoneEntry>{{u"P"_s, u"Ю"_s, u"17.4"_s}, {}}));
        QCOMPARE(reply.apps,
                 (QList<AppRow>{{u"a.b"_s, u"B"_s, u"2"_s, u"9007199254740993"_s, u"8"_s, u"x@y.z"_s}}));
        QCOMPARE(reply.details, (QList<DetailLine>{{u"L"_s, u"3"_s, u"k"_s}}));
        QVERIFY(reply.success);
        QVERIFY(!reply.error);
    }

    void judgesRuns_data()
    {
        const Rows<int, QString, QString> row; // exit code and output; the failure, else the phone P is found
        const QString found = uR"({"devices":[1,"x",[],{"id":"P"}],"apps":"none"})"_s;
        const QString reason = u"Телефон заблокирован."_s;
        const QString locked = uR"({"error":"%1"})"_s.arg(reason);
        row("an earlier error does not count", 0, locked + u'\n' + found, {});
        row("the last object is the answer", 0, found + u'\n' + locked, reason);
        row("error with status 0", 0, locked, reason);
        row("status 1 without error", 1, found, kUnlock);
        row("ended by a signal", 9, found, kUnlock);
        row("empty error", 0, uR"({"error":"","devices":[{"id":"P"}]})"_s, kUnlock);
        row("error that is null", 0, uR"({"error":null,"devices":[{"id":"P"}]})"_s, kUnlock);
        row("no object", 0, u"[1]"_s, kUnlock);
    }

    void judgesRuns()
    {
        const auto &[code, out, failure] = Row<int, QString, QString>();
        const ToolResult result{code, out, u"{\"devices\":[{\"id\":\"of the other output\"}]}"_s, {}};
        QList<PhoneEntry> phones;
        if (failure.isEmpty())
            phones.append({u"P"_s, {}, {}});
        Error error;
        const auto reply = JudgeDeviceRun(result, &error);
        QCOMPARE(error.message, failure);
        QCOMPARE(reply.has_value(), failure.isEmpty());
        QCOMPARE(reply.value_or(DeviceReply()).devices, phones);
        QCOMPARE(DiscoveredPhones(result), phones);
        QCOMPARE(DiscoveredPhones(std::nullopt), QList<PhoneEntry>());
    }

    void sortsByName()
    {
        const QStringList sorted{u""_s,     u"1Password"_s, u"Ежи"_s, u"ёлка"_s, u"Жук"_s, u"и"_s,
                                 u"йога"_s, u"яблоко"_s,    u"App"_s, u"app"_s,  u"Éa"_s,  u"eB"_s};
        QStringList shuffled = sorted;
        std::reverse(shuffled.begin(), shuffled.end());
        shuffled.swapItemsAt(shuffled.indexOf(u"app"_s), shuffled.indexOf(u"App"_s)); // equal: as they came
        QList<AppRow> apps;
        for (const QString &name : shuffled)
            apps.append({u"id.%1"_s.arg(apps.size()), name, {}, {}, {}, {}});
        SortByName(apps);
        QStringList names;
        for (const AppRow &app : apps)
            names.append(app.name);
        QCOMPARE(names, sorted);
        QCOMPARE(apps.first().id, u"id.11"_s);
    }

    void filters_data()
    {
        const Rows<QString, QString, bool> row; // name, what is typed, whether it is found
        row("everything", u"Карты"_s, {}, true);
        row("upper case typed", u"Карты"_s, u"АРТ"_s, true);
        row("lower case typed", u"КАРТЫ"_s, u"арт"_s, true);
        row("part of the identifier", u"Карты"_s, u"EXAMPLE.m"_s, true);
        row("not the version", u"Карты"_s, u"1.5"_s, false);
        row("blanks count", u"Карты"_s, u"карты "_s, false);
        row("typed decomposed", u"Йога"_s, u"и\u0306"_s, true);
        row("named decomposed", u"И\u0306ога"_s, u"йо"_s, true);
        row("another letter than the accented one", u"Йога"_s, u"и"_s, false);
        row("accents count", u"Café"_s, u"cafe"_s, false);
        row("a pattern is text", u"Карты"_s, u".*"_s, false);
    }

    void filters()
    {
        const auto &[name, text, found] = Row<QString, QString, bool>();
        const QList<AppRow> apps{{u"com.Example.maps"_s, name, u"1.5"_s, u"4711"_s, {}, {}}};
        QCOMPARE(!MatchingApps(MakeSearchable(apps), text).empty(), found);
    }
};

QTEST_GUILESS_MAIN(DeviceRulesTest)
#include "tst_device_rules.moc"
