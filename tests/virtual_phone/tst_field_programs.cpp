// The programs that people of the field use take the virtual phone for a phone.
#include "ipa_writer.h"
#include "virtual_phone/plugged_phones.h"

#include <QDir>
#include <QTest>

#include <libimobiledevice/installation_proxy.h>
#include <plist/plist.h>
#include <usbmuxd.h>

using namespace Qt::StringLiterals;

namespace {

using Plist = std::unique_ptr<void, void (*)(void *)>;

/// The field of an app, as Lookup gives it; null when there is none.
Plist lookUp(const char *app, const char *field)
{
    const Device device = openDevice();
    instproxy_client_t proxy = nullptr;
    if (instproxy_client_start_service(device.get(), &proxy, "test") != INSTPROXY_E_SUCCESS)
        return {nullptr, plist_free};
    const Plist options(instproxy_client_options_new(), plist_free);
    plist_t attributes = plist_new_array();
    plist_array_append_item(attributes, plist_new_string(field));
    plist_dict_set_item(options.get(), "ReturnAttributes", attributes);
    const char *apps[] = {app, nullptr};
    plist_t result = nullptr;
    instproxy_lookup(proxy, apps, options.get(), &result);
    instproxy_client_free(proxy);
    const Plist owner(result, plist_free);
    plist_t value = result ? plist_access_path(result, 2, app, field) : nullptr;
    return {value ? plist_copy(value) : nullptr, plist_free};
}

QList<ZipEntry> entriesWith(const QByteArray &infoMembers)
{
    QList<ZipEntry> entries =
        entriesOfIPA({.id = u"ru.primer.novoe"_s, .name = u"Новое [1]"_s, .version = u"3.5"_s});
    for (ZipEntry &entry : entries) {
        if (entry.name.endsWith("Info.plist"))
            entry.data.replace("<dict>", "<dict><key>CFBundleVersion</key><string>35</string>" + infoMembers);
    }
    return entries;
}

} // namespace

class FieldProgramsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void print_data();
    void print();
    void listPhones();
    void pairAndPart();
    void installAndRemove();
    void areRefused_data();
    void areRefused();
};

void FieldProgramsTest::print_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QJsonObject>("changes");
    QTest::addColumn<int>("status");
    QTest::addColumn<QList<QByteArray>>("expected");
    const auto row = [](const char *name, const char *program, const char *arguments,
                        const QJsonObject &changes, int status, const QList<QByteArray> &expected) {
        QTest::newRow(name) << QString::fromLatin1(program)
                            << QString::fromLatin1(arguments).split(u' ', Qt::SkipEmptyParts) << changes
                            << status << expected;
    };
    const auto fault = [](const char *name) {
        return QJsonObject{{"faults"_L1, QJsonObject{{QLatin1StringView(name), true}}}};
    };
    const QJsonObject battery{
        {"CurrentCapacity"_L1, 82}, {"CycleCount"_L1, 312}, {"DesignCapacity"_L1, 3227}};
    const QJsonObject values{
        {"values"_L1, QJsonObject{{""_L1, QJsonObject{{"TimeZone"_L1, u"Asia/Omsk"_s},
                                                      {"ProductName"_L1, QJsonValue()}}}}}};

    row("everything of a phone", "ideviceinfo", "", {}, 0,
        {"DeviceName: iPhone Марии\n", "ProductVersion: 17.5.1\n", "SerialNumber: DEMO0000001A\n"});
    row("without TLS", "ideviceinfo", "", {{"tls"_L1, false}}, 0, {"SerialNumber: DEMO0000001A\n"});
    row("a value of one's own", "ideviceinfo", "-k TimeZone", values, 0, {"Asia/Omsk\n"});
    row("a value taken away", "ideviceinfo", "-k ProductName", values, 0, {});
    row("little to a stranger", "ideviceinfo", "-s", {{"paired"_L1, false}}, 0, {"ProductVersion: 17.5.1\n"});
    row("nothing more to a stranger", "ideviceinfo", "-s -k SerialNumber", {}, 0, {});
    row("storage", "ideviceinfo", "-q com.apple.disk_usage", {{"capacity"_L1, 64'000}, {"used"_L1, 10'000}},
        0, {"TotalDiskCapacity: 64000\n", "AmountDataAvailable: 54000\n"});
    row("charge", "ideviceinfo", "-q com.apple.mobile.battery", {{"battery"_L1, battery}}, 0,
        {"BatteryCurrentCapacity: 82\n", "FullyCharged: false\n"});
    row("battery's registry", "idevicediagnostics", "ioregentry AppleSmartBattery", {{"battery"_L1, battery}},
        0, {"<key>CycleCount</key>\n\t\t<integer>312</integer>"});
    row("battery's gauge", "idevicediagnostics", "diagnostics GasGauge", {{"battery"_L1, battery}}, 0,
        {"<key>DesignCapacity</key>\n\t\t<integer>3227</integer>"});
    row("apps of the user", "ideviceinstaller", "-l", {}, 0,
        {"ru.primer.kot, \"71\", \"Шашки Кота\"\n", "com.example.wiklik, \"3.6.1\""});
    row("apps of the system, in binary", "ideviceinstaller", "-l -o list_system",
        {{"format"_L1, u"binary"_s}}, 0, {"com.example.camera"});
    row("a pairing that holds", "idevicepair", "validate", {}, 0, {"SUCCESS"});
    row("locked", "idevicepair", "pair", fault("locked"), 1, {"passcode"});
    row("the question is asked", "idevicepair", "pair", fault("untrusted"), 1, {"trust dialog"});
    row("the answer was no", "idevicepair", "pair", fault("refused"), 1, {"denied"});
    row("trust taken back", "ideviceinfo", "", fault("revoked"), 255, {"Invalid HostID"});
    row("no such certificate", "ideviceinfo", "-k SerialNumber", fault("wrongKeys"), 0, {});
}

void FieldProgramsTest::print()
{
    QFETCH(const QString, program);
    QFETCH(const QStringList, arguments);
    QFETCH(const QJsonObject, changes);
    QFETCH(const QList<QByteArray>, expected);
    const PluggedPhones phones({soundPhone(changes)});
    QVERIFY(phones.isReady());
    const ProgramRun run = phones.run(program, arguments);
    QVERIFY2(!run.output.contains("DEMO0000001A") || expected.join().contains("DEMO0000001A"),
             run.output.constData());
    for (const QByteArray &text : expected)
        QVERIFY2(run.output.contains(text), run.output.constData());
    QTEST(run.status, "status");
}

void FieldProgramsTest::listPhones()
{
    PluggedPhones phones(
        {soundPhone(), soundPhone({{"udid"_L1, u"b00000000000000000000000000000000000000b"_s}})});
    QVERIFY(phones.isReady());
    const auto listed = [] {
        QProcess list;
        list.start(u"idevice_id"_s, {u"-l"_s});
        list.waitForFinished();
        return list.readAllStandardOutput().split('\n').mid(0, 2);
    };
    QCOMPARE(listed(), (QList<QByteArray>{kUdid.toLatin1(), "b00000000000000000000000000000000000000b"}));
    QCOMPARE(phones.change(QJsonArray{soundPhone()}), "reread"_ba);
    QCOMPARE(listed(), (QList<QByteArray>{kUdid.toLatin1(), ""}));
}

// The keys that a program makes itself are as good as those from the start, until they are given back.
void FieldProgramsTest::pairAndPart()
{
    const PluggedPhones phones({soundPhone({{"paired"_L1, false}})});
    QVERIFY(phones.isReady());
    const QStringList serial{u"-k"_s, u"SerialNumber"_s};
    QVERIFY(phones.run(u"idevicepair"_s, {u"pair"_s}).output.contains("SUCCESS"));
    QCOMPARE(phones.run(u"ideviceinfo"_s, serial).output, "DEMO0000001A\n"_ba);
    char *bytes = nullptr;
    uint32_t size = 0;
    const QByteArray id = kUdid.toLatin1();
    QCOMPARE(usbmuxd_read_pair_record(id.constData(), &bytes, &size), 0);
    const std::unique_ptr<char, void (*)(void *)> record(bytes, std::free);
    QVERIFY(phones.run(u"idevicepair"_s, {u"unpair"_s}).output.contains("SUCCESS"));
    char *none = nullptr;
    uint32_t nothing = 0;
    QVERIFY(usbmuxd_read_pair_record(id.constData(), &none, &nothing) != 0);
    // The phone has forgotten too: the old keys open nothing.
    QCOMPARE(usbmuxd_save_pair_record(id.constData(), record.get(), size), 0);
    const QByteArray refused = phones.run(u"ideviceinfo"_s, serial).output;
    QVERIFY2(refused.contains("Invalid HostID"), refused.constData());
}

void FieldProgramsTest::installAndRemove()
{
    PluggedPhones phones({soundPhone()});
    QVERIFY(phones.isReady());
    // Names that unzip would take for patterns, and a neighbour whose name sorts before the app's own.
    const QString ipa = phones.filePath(u"новое [1]*.ipa"_s);
    QList<ZipEntry> entries = entriesWith({});
    entries.prepend(
        ZipEntry{.name = "Payload/Новое [1].app/Watch/B.app/Info.plist", .data = "no property list"});
    entries.append(ZipEntry{.name = "iTunesMetadata.plist",
                            .data = "<plist><dict><key>itemId</key><integer>7</integer></dict></plist>"});
    QVERIFY(writeZip(ipa.toStdString(), entries));
    const ProgramRun run = phones.run(u"ideviceinstaller"_s, {u"-i"_s, ipa});
    QVERIFY2(run.output.contains("Install: Complete"), run.output.constData());
    QCOMPARE(QDir(phones.filePath(u"state/%1/Media/PublicStaging"_s.arg(kUdid))).entryList(QDir::Files),
             QStringList());
    phones.restart();
    QVERIFY(phones.isReady());
    QVERIFY(phones.run(u"ideviceinstaller"_s, {u"-l"_s}).output.contains("ru.primer.novoe, \"35\""));
    const Plist metadata = lookUp("ru.primer.novoe", "iTunesMetadata");
    uint64_t size = 0;
    const char *bytes = metadata ? plist_get_data_ptr(metadata.get(), &size) : nullptr;
    QVERIFY(QByteArray(bytes, static_cast<qsizetype>(size)).contains("itemId"));
    QVERIFY(phones.run(u"ideviceinstaller"_s, {u"-U"_s, u"ru.primer.novoe"_s})
                .output.contains("Uninstall: Complete"));
    QVERIFY(phones.run(u"ideviceinstaller"_s, {u"-U"_s, u"ru.primer.kot"_s})
                .output.contains("Uninstall: Complete"));
    phones.restart();
    const QByteArray left = phones.run(u"ideviceinstaller"_s, {u"-l"_s}).output;
    QVERIFY2(left.contains("wiklik") && !left.contains("novoe") && !left.contains("kot"), left.constData());
}

void FieldProgramsTest::areRefused_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QJsonObject>("changes");
    QTest::addColumn<QByteArray>("expected");
    const auto fault = [](const QJsonObject &faults) { return QJsonObject{{"faults"_L1, faults}}; };
    QTest::newRow("made for a later system") << "<key>MinimumOSVersion</key><string>17.6</string>"_ba
                                             << QJsonObject() << "DeviceOSVersionTooLow"_ba;
    QTest::newRow("made for this very system: installed")
        << "<key>MinimumOSVersion</key><string>17.5.1</string>"_ba << QJsonObject() << "Install: Complete"_ba;
    QTest::newRow("made for tablets") << "<key>UIDeviceFamily</key><array><integer>2</integer></array>"_ba
                                      << QJsonObject() << "DeviceFamilyNotSupported"_ba;
    QTest::newRow("a signature that is turned down")
        << ""_ba
        << fault({{"installError"_L1, u"ApplicationVerificationFailed"_s},
                  {"installErrorDetail"_L1, u"0xe8008015"_s}})
        << "ApplicationVerificationFailed"_ba;
    QTest::newRow("one app that is turned down")
        << ""_ba
        << QJsonObject{{"installErrors"_L1, QJsonObject{{"ru.primer.novoe"_L1, u"InstallProhibited"_s}}}}
        << "InstallProhibited"_ba;
    QTest::newRow("no room") << ""_ba << fault({{"full"_L1, true}}) << "AFC Write error"_ba;
    QTest::newRow("less room than the file needs")
        << ""_ba << QJsonObject{{"capacity"_L1, 5000}, {"used"_L1, 4900}} << "AFC Write error"_ba;
}

void FieldProgramsTest::areRefused()
{
    QFETCH(const QByteArray, info);
    QFETCH(const QJsonObject, changes);
    QFETCH(const QByteArray, expected);
    const PluggedPhones phones({soundPhone(changes)});
    QVERIFY(phones.isReady());
    const QString ipa = phones.filePath(u"app.ipa"_s);
    QVERIFY(writeZip(ipa.toStdString(), entriesWith(info)));
    const ProgramRun run = phones.run(u"ideviceinstaller"_s, {u"-i"_s, ipa});
    QVERIFY2(run.output.contains(expected), run.output.constData());
    const bool listed = phones.run(u"ideviceinstaller"_s, {u"-l"_s}).output.contains("ru.primer.novoe");
    QCOMPARE(listed, expected == "Install: Complete");
}

QTEST_GUILESS_MAIN(FieldProgramsTest)

#include "tst_field_programs.moc"
