// What the device tool makes of a phone's words, without a phone.
#include "app_records.h"
#include "command_line.h"
#include "detail_lines.h"
#include "install_messages.h"
#include "ipa_contents.h"
#include "ipa_writer.h"
#include "plist_codec.h"
#include "plist_value.h"
#include "staging_names.h"
#include "support/rows.h"
#include "usb_bus.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

QVariantMap members(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson('{' + json + '}');
    if (!document.isObject())
        qFatal("no JSON: %s", json.constData());
    return document.object().toVariantMap();
}

/// A property list from JSON without its outer braces.
Plist dictionary(const QByteArray &json)
{
    return ParsePlist(encodePlist(members(json)));
}

/// An app whose store metadata are these bytes.
Plist appWith(const QByteArray &metadata)
{
    return ParsePlist(encodePlist(
        QVariantMap{{u"CFBundleIdentifier"_s, u"ru.primer.kot"_s}, {u"iTunesMetadata"_s, metadata}}));
}

QString recordOf(const Plist &app)
{
    const auto record = AppRecord(app.get());
    return record ? QString::fromUtf8(QJsonDocument(*record).toJson(QJsonDocument::Compact)) : QString();
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
    texts.replaceInStrings(u"\u00a0"_s, u" "_s);
    return texts.replaceInStrings(u"\u2212"_s, u"-"_s);
}

} // namespace

class PhoneRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A file may be called like an option. Words too many or too few, unknown and empty ones are refused.
    void readsCommandLines()
    {
        const auto understands = [](const char *words) {
            const QString line = QString::fromLatin1(words);
            return ParseCommandLine(line.isEmpty() ? QStringList() : line.split(u' ')).has_value();
        };
        for (const char *words : {"devices", "--verbose apps ID", "install ID --help"})
            QVERIFY2(understands(words), words);
        for (const char *words : {"", "pair ID", "info", "info ", "install ID", "apps ID x"})
            QVERIFY2(!understands(words), words);
    }

    void seesPhonesOnTheBus()
    {
        // The numbers of maker and product; the second is a keyboard.
        for (const auto &[maker, product, isPhone] : {std::tuple("05ac\n", "12a8\n", true),
                                                      {"05ac\n", "024f\n", false},
                                                      {"1d6b\n", "12a8\n", false}}) {
            const QTemporaryDir bus;
            QVERIFY(QDir(bus.path()).mkdir(u"1-2"_s));
            for (const auto &[name, number] : {std::pair(u"idVendor"_s, maker), {u"idProduct"_s, product}}) {
                QFile file(bus.filePath(u"1-2/"_s + name));
                QVERIFY(file.open(QIODevice::WriteOnly) && file.write(number) > 0);
            }
            QCOMPARE(IsPhoneOnBus(bus.path()), isPhone);
        }
    }

    void readsApps_data()
    {
        const Rows<QByteArray, QString> row; // the app but for its identifier, name and version
        row("the ones meant for reading",
            R"("CFBundleDisplayName": "Кот & Ко", "CFBundleName": "cat", "CFBundleShortVersionString": "7.1")",
            uR"("Кот & Ко","version":"7.1")"_s);
        row("those empty: the bundle's own",
            R"("CFBundleDisplayName": "", "CFBundleName": "cat", "CFBundleVersion": 71)",
            uR"("cat","version":"71")"_s);
        const QByteArray fitting(4095, 'x');
        row("a pair on the bound: left out whole", "\"CFBundleName\": \"" + fitting + "🙂\"",
            u"\"%1\",\"version\":\"\""_s.arg(QLatin1StringView(fitting)));
        row("metadata no data: left out", R"("iTunesMetadata": "x")", uR"("kot","version":"")"_s);
    }

    void readsApps()
    {
        const auto &[app, record] = Row<QByteArray, QString>();
        QCOMPARE(recordOf(dictionary(R"("CFBundleIdentifier": "ru.primer.kot", )" + app)),
                 uR"({"id":"ru.primer.kot","name":)"_s + record + u'}');
    }

    void readsStoreMetadata()
    {
        const QVariantMap store =
            members(R"("com.apple.iTunesStore.downloadInfo": {"accountInfo": {"AppleID": "a@b"}},)"
                    R"("itemId": 1700000116, "softwareVersionExternalIdentifier": "800000002")");
        for (const PlistFormat format : {PlistFormat::Xml, PlistFormat::Binary})
            QCOMPARE(recordOf(appWith(encodePlist(store, format))),
                     uR"({"id":"ru.primer.kot","licenseAccount":"a@b","name":"kot","storeID":"1700000116",)"_s
                     uR"("storeVersionID":"800000002","version":""})"_s);
        // Of wrong types, and damaged: they are left out.
        const QVariantMap wrong = members(R"("com.apple.iTunesStore.downloadInfo": "x", "itemId": {})");
        for (const QByteArray &metadata : {encodePlist(wrong), "bplist00"_ba})
            QCOMPARE(recordOf(appWith(metadata)), uR"({"id":"ru.primer.kot","name":"kot","version":""})"_s);
        QCOMPARE(recordOf(dictionary(R"("CFBundleName": "cat")")), QString()); // no identifier, no app
    }

    void wordsDetails_data()
    {
        const Rows<QStringList, QString> row;
        const auto info = [](const QByteArray &values, const QByteArray &disk) {
            return given(InfoLines(dictionary(values).get(), dictionary(disk).get()));
        };
        const auto battery = [](const QByteArray &state, const QByteArray &gauge) {
            return given(BatteryLines(dictionary(state).get(), dictionary(gauge).get()));
        };
        row("phone: unknown model, no build, wrong types",
            info(R"("ProductType": "iPhone99,1", "ProductVersion": "30.0", "TimeZone": {})",
                 R"("TotalDiskCapacity": -1, "TotalDataAvailable": "1000")"),
            u"Модель=iPhone99,1|Версия iOS=30.0|Память, свободно=1,0 кБ"_s);
        row("battery: deeper readings, fresh, in the cold, unplugged",
            battery(R"("BatteryIsCharging": false)",
                    R"("Temperature": -510, "BatteryData": {"DesignCapacity": 2000, "CycleCount": 0,
                       "AppleRawMaxCapacity": 2100})"),
            u"Зарядка=работает от аккумулятора|Состояние аккумулятора (оценка)=100 %|Циклы перезарядки=0|"
            "Ёмкость по проекту=2000 мА·ч|Текущая ёмкость=2100 мА·ч|Температура=-5,1 °C"_s);
        row("battery: senseless readings left out",
            battery(R"("BatteryCurrentCapacity": 900)",
                    R"("DesignCapacity": 0, "NominalChargeCapacity": -1, "Temperature": 99999,
                       "CycleCount": "many")"),
            {});
    }

    void wordsDetails()
    {
        const auto &[lines, expected] = Row<QStringList, QString>();
        QCOMPARE(lines.join(u'|'), expected);
    }

    void judgesInstallMessages_data()
    {
        using Kind = InstallMessage::Kind;
        const Rows<QByteArray, Kind, int, QString> row; // message; kind, percent, refusal
        row("percent beyond 100: not believed", R"("Status": "X", "PercentComplete": 101)", Kind::Working, -1,
            {});
        row("neither status nor error: ignored", R"("PercentComplete": 5)", Kind::Other, -1, {});
        const auto refused = [&](const char *name, const QByteArray &error, const QString &sentence) {
            row(name, R"("Error": )" + error, Kind::Refused, -1, sentence);
        };
        const QByteArray verification = R"("ApplicationVerificationFailed")";
        const QString full = u"На телефоне не хватает места."_s;
        const QString damaged = u"Файл IPA повреждён или не распознан."_s;
        refused("forbidden, though complete", R"("InstallProhibited", "Status": "Complete")",
                u"Установка запрещена настройками телефона."_s);
        refused("signature revoked, told in words only",
                verification + R"(, "ErrorDescription": "code signature: 0xE8008018 x")",
                u"Сертификат подписи приложения больше не действителен."_s);
        refused("not signed", verification + R"(, "ErrorDetail": -402620388)", u"Приложение не подписано."_s);
        refused("signature, another reason", verification + R"(, "ErrorDetail": -402620394)",
                u"Телефон отклонил подпись приложения (код 0xe8008016)."_s);
        refused("signature, no reason", verification, u"Телефон отклонил подпись приложения."_s);
        refused("full, told in the description",
                R"("PackageExtractionFailed", "ErrorDescription": "No space left on device")", full);
        refused("archive damaged", R"("PackageExtractionFailed", "ErrorDescription": "x")", damaged);
        const QString fitting(499, u'x');
        refused("another reason, described at length",
                "\"APIInternalError\", \"ErrorDescription\": \"" + (fitting + u"🙂\""_s).toUtf8(),
                u"Телефон отказался установить приложение: APIInternalError — "_s + fitting);
    }

    void judgesInstallMessages()
    {
        const auto &[message, kind, percent, refusal] = Row<QByteArray, InstallMessage::Kind, int, QString>();
        const InstallMessage read = ReadInstallMessage(dictionary(message).get());
        QCOMPARE(read.kind, kind);
        QCOMPARE(read.percent, percent);
        QCOMPARE(kind == InstallMessage::Kind::Refused ? read.refusal.message : QString(), refusal);
    }

    void readsArchives_data()
    {
        const Rows<QList<ZipEntry>, QString> row; // entries; identifier, licence and metadata
        const QList<ZipEntry> sound = entriesOfIPA({.id = u"ru.primer.kot"_s, .executable = u"Kot"_s});
        const QByteArray info = infoPropertyList({.id = u"ru.primer.kot"_s});
        const ZipEntry licence{.name = "Payload/App.app/SC_Info/Kot.sinf", .data = "licence"};
        const ZipEntry metadata{.name = "iTunesMetadata.plist", .data = "<plist/>"};
        row("bought in the store", sound + QList{licence, metadata}, u"ru.primer.kot licence <plist/>"_s);
        row("description within an extension only: no IPA",
            {{.name = "Payload/App.app/PlugIns/X.app/Info.plist", .data = info}}, {});
        const QString wide =
            u"\uFEFF<plist><dict><key>CFBundleIdentifier</key><string>ru.primer.kot</string></dict></plist>"_s;
        row("description in UTF-16, which Zarvo accepts",
            {{.name = "Payload/App.app/Info.plist",
              .data = QByteArray(reinterpret_cast<const char *>(wide.utf16()), wide.size() * 2)}},
            u"ru.primer.kot  "_s);
    }

    void readsArchives()
    {
        const auto &[entries, expected] = Row<QList<ZipEntry>, QString>();
        const QTemporaryDir folder;
        const QString file = folder.filePath(u"Кот.ipa"_s);
        QVERIFY(writeZip(file.toStdString(), entries));
        Failure failure;
        const auto contents = ReadIPAContents(file, &failure);
        QCOMPARE(contents.has_value() || failure.fault == Fault::BadFile, true);
        QCOMPARE(contents ? contents->bundleID + u' ' +
                                QString::fromUtf8(contents->sinf + ' ' + contents->metadata)
                          : QString(),
                 expected);
    }

    void tellsAbandonedUploads()
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
};

QTEST_GUILESS_MAIN(PhoneRulesTest)

#include "tst_phone_rules.moc"
