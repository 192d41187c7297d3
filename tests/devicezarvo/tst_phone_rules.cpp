// What the device tool makes of a phone's words, without a phone.
#include "app_records.h"
#include "command_line.h"
#include "detail_lines.h"
#include "install_messages.h"
#include "ipa_contents.h"
#include "ipa_writer.h"
#include "plist_value.h"
#include "staging_names.h"

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// A property list from the inside of a dictionary: "<key>…</key><…/>".
Plist dictionary(const QByteArray &members)
{
    return ParsePlist("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + members + "</dict></plist>");
}

QByteArray text(const QByteArray &key, const QByteArray &value)
{
    return "<key>" + key + "</key><string>" + value + "</string>";
}

QByteArray whole(const QByteArray &key, const QByteArray &value)
{
    return "<key>" + key + "</key><integer>" + value + "</integer>";
}

QByteArray nested(const QByteArray &key, const QByteArray &members)
{
    return "<key>" + key + "</key><dict>" + members + "</dict>";
}

/// The store's metadata as the phone keeps them: a property list in bytes, of either kind.
QByteArray metadata(const QByteArray &members, bool binary)
{
    const Plist list = dictionary(members);
    char *bytes = nullptr;
    std::uint32_t length = 0;
    binary ? plist_to_bin(list.get(), &bytes, &length) : plist_to_xml(list.get(), &bytes, &length);
    const QByteArray data = QByteArray(bytes, length).toBase64();
    plist_to_xml_free(bytes);
    return "<key>iTunesMetadata</key><data>" + data + "</data>";
}

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

/// "label=value" of the lines that have a value.
QStringList given(const QJsonArray &lines)
{
    QStringList texts;
    for (const auto line : lines) {
        const QString value = line["value"_L1].toString();
        if (value != u"недоступно")
            texts.append(line["label"_L1].toString() + u'=' + value);
    }
    return texts;
}

} // namespace

class PhoneRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsCommandLines_data();
    void readsCommandLines();
    void readsApps_data();
    void readsApps();
    void wordsDetails_data();
    void wordsDetails();
    void judgesInstallMessages_data();
    void judgesInstallMessages();
    void readsArchives_data();
    void readsArchives();
    void tellsAbandonedUploads();
};

void PhoneRulesTest::readsCommandLines_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<bool>("understood");
    QTest::newRow("a command alone") << QStringList{u"devices"_s} << true;
    QTest::newRow("with diagnostics") << QStringList{u"--verbose"_s, u"apps"_s, u"ID"_s} << true;
    QTest::newRow("file called like an option") << QStringList{u"install"_s, u"ID"_s, u"--help"_s} << true;
    QTest::newRow("nothing: refused") << QStringList{} << false;
    QTest::newRow("unknown word: refused") << QStringList{u"pair"_s, u"ID"_s} << false;
    QTest::newRow("phone missing: refused") << QStringList{u"info"_s} << false;
    QTest::newRow("phone empty: refused") << QStringList{u"info"_s, {}} << false;
    QTest::newRow("file missing: refused") << QStringList{u"install"_s, u"ID"_s} << false;
    QTest::newRow("a word too many: refused") << QStringList{u"apps"_s, u"ID"_s, u"x"_s} << false;
}

void PhoneRulesTest::readsCommandLines()
{
    QFETCH(const QStringList, words);
    QTEST(ParseCommandLine(words).has_value(), "understood");
}

void PhoneRulesTest::readsApps_data()
{
    QTest::addColumn<QByteArray>("app");
    QTest::addColumn<QString>("record"); // empty: none
    const QByteArray id = text("CFBundleIdentifier", "ru.primer.kot");
    const QByteArray store =
        nested("com.apple.iTunesStore.downloadInfo", nested("accountInfo", text("AppleID", "a@b.example"))) +
        whole("itemId", "1700000116") + text("softwareVersionExternalIdentifier", "800000002");
    const QString bare = uR"({"id":"ru.primer.kot","name":"kot","version":""})"_s;
    const QString full =
        uR"({"id":"ru.primer.kot","licenseAccount":"a@b.example","name":"kot","storeID":"1700000116",)"
        uR"("storeVersionID":"800000002","version":""})"_s;

    QTest::newRow("names and versions: the ones meant for reading")
        << id + text("CFBundleDisplayName", "Кот &amp; Ко") + text("CFBundleName", "cat") +
               text("CFBundleShortVersionString", "7.1") + text("CFBundleVersion", "71")
        << uR"({"id":"ru.primer.kot","name":"Кот & Ко","version":"7.1"})"_s;
    QTest::newRow("those empty: the bundle's own")
        << id + text("CFBundleDisplayName", "") + text("CFBundleName", "cat") + whole("CFBundleVersion", "71")
        << uR"({"id":"ru.primer.kot","name":"cat","version":"71"})"_s;
    QTest::newRow("nothing but the identifier: its last part") << id << bare;
    QTest::newRow("identifier ends in a dot: the part before it")
        << text("CFBundleIdentifier", "ru.kot.") << uR"({"id":"ru.kot.","name":"kot","version":""})"_s;
    QTest::newRow("no identifier: no app") << text("CFBundleName", "cat") << QString();
    QTest::newRow("store's metadata in XML") << id + metadata(store, false) << full;
    QTest::newRow("store's metadata in binary") << id + metadata(store, true) << full;
    QTest::newRow("metadata of wrong types: left out")
        << id + metadata(text("com.apple.iTunesStore.downloadInfo", "x") + nested("itemId", ""), true)
        << bare;
    QTest::newRow("metadata damaged: left out")
        << id + "<key>iTunesMetadata</key><data>YnBsaXN0MDA=</data>" << bare;
    QTest::newRow("metadata no data: left out") << id + text("iTunesMetadata", "x") << bare;
}

void PhoneRulesTest::readsApps()
{
    QFETCH(const QByteArray, app);
    const auto record = AppRecord(dictionary(app).get());
    QTEST(record ? compact(*record) : QString(), "record");
}

void PhoneRulesTest::wordsDetails_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("expected");
    const auto info = [](const QByteArray &values, const QByteArray &disk) {
        return given(InfoLines(dictionary(values).get(), dictionary(disk).get()));
    };
    const auto battery = [](const QByteArray &state, const QByteArray &gauge) {
        return given(BatteryLines(dictionary(state).get(), dictionary(gauge).get()));
    };
    QTest::newRow("phone: all") << info(text("DeviceName", "Мария") + text("ProductType", "iPhone14,4") +
                                            text("ProductVersion", "17.5.1") + text("BuildVersion", "21F90") +
                                            text("SerialNumber", "S1") + text("UniqueDeviceID", "U1") +
                                            text("TimeZone", "Europe/Moscow") + text("PhoneNumber", "+7 900"),
                                        whole("TotalDiskCapacity", "128000000000") +
                                            whole("AmountDataAvailable", "41289000000"))
                                << QStringList{u"Имя=Мария"_s,
                                               u"Модель=iPhone 13 mini (iPhone14,4)"_s,
                                               u"Версия iOS=17.5.1 (21F90)"_s,
                                               u"Серийный номер=S1"_s,
                                               u"UDID=U1"_s,
                                               u"Память, всего=128,0 ГБ"_s,
                                               u"Память, свободно=41,3 ГБ"_s,
                                               u"Часовой пояс=Europe/Moscow"_s,
                                               u"Номер телефона=+7 900"_s};
    QTest::newRow("phone: unknown model, no build, wrong types")
        << info(text("ProductType", "iPhone99,1") + text("ProductVersion", "30.0") + nested("TimeZone", ""),
                whole("TotalDiskCapacity", "-1") + text("TotalDataAvailable", "1000"))
        << QStringList{u"Модель=iPhone99,1"_s, u"Версия iOS=30.0"_s, u"Память, свободно=1,0 кБ"_s};
    QTest::newRow("phone: nothing") << given(InfoLines(nullptr, nullptr)) << QStringList();
    QTest::newRow("battery: all") << battery(whole("BatteryCurrentCapacity", "82") +
                                                 "<key>BatteryIsCharging</key><true/>",
                                             whole("CycleCount", "312") + whole("DesignCapacity", "2406") +
                                                 whole("NominalChargeCapacity", "2190") +
                                                 whole("Temperature", "2940"))
                                  << QStringList{u"Заряд=82 %"_s,
                                                 u"Зарядка=заряжается"_s,
                                                 u"Состояние аккумулятора (оценка)=91 %"_s,
                                                 u"Циклы перезарядки=312"_s,
                                                 u"Ёмкость по проекту=2406 мА·ч"_s,
                                                 u"Текущая ёмкость=2190 мА·ч"_s,
                                                 u"Температура=29,4 °C"_s};
    QTest::newRow("battery: deeper readings, fresh, in the cold, unplugged")
        << battery("<key>BatteryIsCharging</key><false/>",
                   whole("Temperature", "-510") +
                       nested("BatteryData", whole("DesignCapacity", "2000") + whole("CycleCount", "0") +
                                                 whole("AppleRawMaxCapacity", "2100")))
        << QStringList{u"Зарядка=работает от аккумулятора"_s,
                       u"Состояние аккумулятора (оценка)=100 %"_s,
                       u"Циклы перезарядки=0"_s,
                       u"Ёмкость по проекту=2000 мА·ч"_s,
                       u"Текущая ёмкость=2100 мА·ч"_s,
                       u"Температура=-5,1 °C"_s};
    QTest::newRow("battery: senseless readings left out")
        << battery(whole("BatteryCurrentCapacity", "900"),
                   whole("DesignCapacity", "0") + whole("NominalChargeCapacity", "-1") +
                       whole("Temperature", "99999") + text("CycleCount", "many"))
        << QStringList();
}

void PhoneRulesTest::wordsDetails()
{
    QFETCH(QStringList, lines);
    lines.replaceInStrings(u"\u00a0"_s, u" "_s);
    lines.replaceInStrings(u"\u2212"_s, u"-"_s);
    QTEST(lines, "expected");
}

void PhoneRulesTest::judgesInstallMessages_data()
{
    using Kind = InstallMessage::Kind;
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<int>("percent");
    QTest::addColumn<QString>("refusal");
    const auto refused = [](const char *name, const QByteArray &error, const QByteArray &more,
                            const QString &sentence) {
        QTest::newRow(name) << text("Error", error) + more << Kind::Refused << -1 << sentence;
    };
    const auto described = [](const QByteArray &description) {
        return text("ErrorDescription", description);
    };
    const QByteArray verification("ApplicationVerificationFailed");

    QTest::newRow("progress") << text("Status", "CreatingStagingDirectory") + whole("PercentComplete", "5")
                              << Kind::Working << 5 << QString();
    QTest::newRow("percent beyond 100: not believed")
        << text("Status", "X") + whole("PercentComplete", "101") << Kind::Working << -1 << QString();
    QTest::newRow("neither status nor error: ignored")
        << whole("PercentComplete", "5") << Kind::Other << -1 << QString();
    QTest::newRow("complete") << text("Status", "Complete") << Kind::Complete << -1 << QString();
    QTest::newRow("complete with an error: refused")
        << text("Status", "Complete") + text("Error", "InstallProhibited") << Kind::Refused << -1
        << u"Установка запрещена настройками телефона."_s;
    refused(
        "developer's build", verification, whole("ErrorDetail", "-402620395"),
        u"Нет подходящего профиля: это сборка для разработчиков, не предназначенная для этого телефона."_s);
    refused("signature revoked, told in words only", verification,
            described("code signature: 0xE8008018 (x)"),
            u"Сертификат подписи приложения больше не действителен."_s);
    refused("not signed", verification, whole("ErrorDetail", "-402620388"), u"Приложение не подписано."_s);
    refused("signature, another reason", verification, whole("ErrorDetail", "-402620394"),
            u"Телефон отклонил подпись приложения (код 0xe8008016)."_s);
    refused("signature, no reason", verification, {}, u"Телефон отклонил подпись приложения."_s);
    refused("full, told in the error", "write: No space left on device", {},
            u"На телефоне не хватает места."_s);
    refused("full, told in the description", "PackageExtractionFailed", described("No space left on device"),
            u"На телефоне не хватает места."_s);
    refused("archive damaged", "PackageExtractionFailed", described("x"),
            u"Файл IPA повреждён или не распознан."_s);
    refused("archive not understood", "PackageInspectionFailed", {},
            u"Файл IPA повреждён или не распознан."_s);
    refused("system too old", "DeviceOSVersionTooLow", {}, u"Нужна более новая версия iOS."_s);
    refused("another kind of device", "DeviceFamilyNotSupported", {},
            u"Приложение не для этого устройства."_s);
    refused("another reason", "APIInternalError", described("no"),
            u"Телефон отказался установить приложение: APIInternalError — no"_s);
    refused("another reason, no words", "APIInternalError", {},
            u"Телефон отказался установить приложение: APIInternalError"_s);
}

void PhoneRulesTest::judgesInstallMessages()
{
    QFETCH(const QByteArray, message);
    const InstallMessage read = ReadInstallMessage(dictionary(message).get());
    QTEST(read.kind, "kind");
    QTEST(read.percent, "percent");
    if (read.kind == InstallMessage::Kind::Refused)
        QTEST(read.refusal.message, "refusal");
}

void PhoneRulesTest::readsArchives_data()
{
    QTest::addColumn<QList<ZipEntry>>("entries");
    QTest::addColumn<QString>("bundle"); // empty: no IPA
    QTest::addColumn<QByteArray>("sinf");
    QTest::addColumn<QByteArray>("metadata");
    const QList<ZipEntry> sound = entriesOfIPA({.id = u"ru.primer.kot"_s, .executable = u"Kot"_s});
    const auto entry = [](const QByteArray &name, const QByteArray &data) {
        return ZipEntry{.name = name, .data = data};
    };
    QTest::newRow("bought in the store")
        << sound + QList{entry("Payload/App.app/SC_Info/Kot.sinf", "licence"),
                         entry("iTunesMetadata.plist", "<plist/>")}
        << u"ru.primer.kot"_s << QByteArray("licence") << QByteArray("<plist/>");
    QTest::newRow("not from the store") << sound << u"ru.primer.kot"_s << QByteArray() << QByteArray();
    const QString wide =
        u"\uFEFF<plist><dict><key>CFBundleIdentifier</key><string>ru.primer.kot</string></dict></plist>"_s;
    QTest::newRow("description in UTF-16, which Zarvo accepts")
        << QList{entry("Payload/App.app/Info.plist",
                       QByteArray(reinterpret_cast<const char *>(wide.utf16()), wide.size() * 2))}
        << u"ru.primer.kot"_s << QByteArray() << QByteArray();
    QTest::newRow("description within an extension only: no IPA")
        << QList{entry("Payload/App.app/PlugIns/X.app/Info.plist",
                       infoPropertyList({.id = u"ru.primer.kot"_s}))}
        << QString() << QByteArray() << QByteArray();
    QTest::newRow("description damaged: no IPA") << QList{entry("Payload/App.app/Info.plist", "no plist")}
                                                 << QString() << QByteArray() << QByteArray();
}

void PhoneRulesTest::readsArchives()
{
    QFETCH(const QList<ZipEntry>, entries);
    QFETCH(const QString, bundle);
    const QTemporaryDir folder;
    const QString file = folder.filePath(u"Кот.ipa"_s);
    QVERIFY(writeZip(QFile::encodeName(file).toStdString(), entries));
    Failure failure;
    const auto contents = ReadIPAContents(file, &failure);
    QCOMPARE(contents ? contents->bundleID : QString(), bundle);
    if (contents) {
        QTEST(contents->sinf, "sinf");
        QTEST(contents->metadata, "metadata");
    } else {
        QCOMPARE(failure.fault, Fault::BadFile);
    }
}

void PhoneRulesTest::tellsAbandonedUploads()
{
    const qint64 now = 1'800'000'000;
    QVERIFY(IsAbandonedUpload(StagingName(now - 4000, 7), now));
    QVERIFY(!IsAbandonedUpload(StagingName(now - 800, 7), now));
    QVERIFY(!IsAbandonedUpload(StagingName(now + 4000, 7), now));
    for (const char *foreign :
         {"zarvo-.ipa", "zarvo-x-1.ipa", "zarvo-1500000000.ipa", "zarvo-1500000000-.ipa",
          "zarvo-1500000000-1-copy.ipa", "zarvo-1500000000-1.ipa\n", "zarvo--1500000000-1.ipa",
          "com.example.app", "."})
        QVERIFY2(!IsAbandonedUpload(foreign, now), foreign);
}

QTEST_GUILESS_MAIN(PhoneRulesTest)

#include "tst_phone_rules.moc"
