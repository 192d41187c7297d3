// What the device tool answers: from its output to records, and from these to what is shown and asked for.
#include "core/ipa_file_naming.h"
#include "core/shown_text.h"
#include "core/tool_output.h"
#include "device/device_discovery.h"
#include "device/device_information.h"
#include "device/device_tool_client.h"
#include "device/install_to_device.h"
#include "device/installed_apps.h"
#include "fuzzing.h"
#include "store/app_download.h"
#include "store/batch_download.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestText = 4096;

void checkText(const QString &text)
{
    Require(text.size() <= kLongestText, "a record's text is bounded");
    const QString line = OneLine(text);
    const auto breaksLine = [](QChar c) {
        return c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
               c == QChar::ParagraphSeparator;
    };
    Require(std::none_of(line.begin(), line.end(), breaksLine), "a text is shown in one line");
}

void checkPhones(QList<PhoneEntry> phones)
{
    for (const PhoneEntry &phone : phones) {
        checkText(phone.id);
        checkText(PhoneTitle(phone));
        Require(HasPhone(phones, phone.id) && FindPhone(phones, phone.id).id == phone.id,
                "a phone is found again");
    }
    const QList<PhoneEntry> before = phones;
    SortByName(phones);
    Require(std::is_permutation(phones.begin(), phones.end(), before.begin(), before.end()),
            "sorting loses no phone");
}

void checkApp(const AppRow &app, const SearchableApps &searchable)
{
    const QList<AppRow> &apps = searchable.rows;
    for (const QString &text :
         {app.id, app.name, app.version, app.storeID, app.storeVersionID, app.licenseAccount})
        checkText(text);
    const auto isApp = [&](qsizetype position) { return apps[position] == app; };
    for (const QString &text : {app.name, app.id}) {
        const auto found = MatchingApps(searchable, text);
        Require(std::any_of(found.begin(), found.end(), isApp),
                "an app is found by its name and by its identifier");
    }
    Require(app.id.isEmpty() || FindApp(apps, app.id)->id == app.id, "an app is found again");
    OwnerText(app);
    const QStringList arguments = DownloadArguments(app, app.storeID, u"/private/download.ipa"_s, true);
    const qsizetype number = arguments.indexOf(u"--app-id"_s);
    Require(number < 0 || IntegerValue(arguments[number + 1]) > 0,
            "the store is asked for a positive number");
    Require(IsInstalled(apps, {app.id, app.version}), "an app that was read counts as installed");
    ZarvoFilename(app.name, app.version);
}

void checkReport(const QList<AppRow> &apps)
{
    const QByteArray report = BatchReportJSON(NewBatchReport(apps));
    const QJsonArray entries = QJsonDocument::fromJson(report).array();
    Require(entries.size() == apps.size(), "a report has an entry for each app");
    for (qsizetype i = 0; i < apps.size(); ++i) {
        // In JSON as in UTF-8 there is no half of a pair.
        const QString id = entries[i].toObject()["bundleID"_L1].toString();
        Require(id == apps[i].id || !apps[i].id.isValidUtf16(), "a report names each app");
    }
}

void checkApps(QList<AppRow> apps)
{
    const QList<AppRow> before = apps;
    SortByName(apps);
    Require(std::is_permutation(apps.begin(), apps.end(), before.begin(), before.end()),
            "sorting loses no app");
    const QList<AppRow> sorted = apps;
    SortByName(apps);
    Require(apps == sorted, "what is sorted stays so");
    const SearchableApps searchable = MakeSearchable(apps);
    Require(MatchingApps(searchable, {}).size() == static_cast<size_t>(apps.size()),
            "who searches for nothing finds all");
    for (const AppRow &app : sorted)
        checkApp(app, searchable);
    checkReport(apps);
}

void checkRun(const ToolResult &run)
{
    Error error;
    const auto reply = JudgeDeviceRun(run, &error);
    Require(reply.has_value() == error.message.isEmpty(), "a failure has a reason and nothing else has one");
    Require(!reply || (run.code == 0 && !reply->error), "a run that failed gives no answer");
    Require(DiscoveredPhones(run) == (reply ? reply->devices : QList<PhoneEntry>()),
            "phones are found when the run succeeded");
    error = {};
    const bool installed = JudgeInstallRun(run, &error);
    Require(installed == error.message.isEmpty(), "an installation is confirmed, or there is a reason");
    Require(!installed || (run.code == 0 && LastDeviceReply(run)->success),
            "nothing is confirmed without a success");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes = BytesOf(data, size);
    const QString printed = QString::fromUtf8(bytes);
    for (const int code : {0, 1})
        checkRun({code, printed, {}, {}});
    const auto reply = LastDeviceReply({0, printed, {}, {}});
    if (!reply)
        return 0;
    checkText(reply->error.value_or(QString()));
    checkPhones(reply->devices);
    checkApps(reply->apps);
    for (const DetailLine &line : reply->details) {
        checkText(line.label);
        checkText(line.value);
    }
    DetailsText(reply->details);
    return 0;
}
