// The programs that people of the field use, and their library, take the virtual phone for a phone; and the
// faults that it plays are those that were asked for.
#include "devicezarvo/phone_fixture.h"
#include "ipa_writer.h"
#include "support/rows.h"

#include <libimobiledevice/diagnostics_relay.h>
#include <libimobiledevice/lockdown.h>
#include <usbmuxd.h>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

const QString kInfo = u"ideviceinfo"_s;
const QString kInstaller = u"ideviceinstaller"_s;
const QString kApp = u"ru.primer.novoe"_s;
const QByteArray kSerial = "DEMO0000001A";

/// What works: "session", "files", "diagnostics", behind one another; empty when the phone is not even there.
QByteArray works()
{
    const Device device = openDevice();
    QByteArray seen = device ? "plugged" : "";
    lockdownd_client_t lockdown = nullptr;
    if (device &&
        lockdownd_client_new_with_handshake(device.get(), &lockdown, "test") == LOCKDOWN_E_SUCCESS) {
        char *name = nullptr;
        seen += lockdownd_get_device_name(lockdown, &name) == LOCKDOWN_E_SUCCESS ? " session" : "";
        std::free(name);
        lockdownd_client_free(lockdown);
    }
    if (!seen.contains("session"))
        return seen;
    if (const Afc afc = openAfc(device))
        seen += afc_make_directory(afc.get(), "folder") == AFC_E_SUCCESS ? " files" : "";
    diagnostics_relay_client_t relay = nullptr;
    if (diagnostics_relay_client_start_service(device.get(), &relay, "test") == DIAGNOSTICS_RELAY_E_SUCCESS) {
        plist_t all = nullptr;
        const auto error = diagnostics_relay_request_diagnostics(relay, "All", &all);
        seen += error == DIAGNOSTICS_RELAY_E_SUCCESS ? " diagnostics" : "";
        plist_free(all);
        diagnostics_relay_client_free(relay);
    }
    return seen;
}

} // namespace

class VirtualPhoneTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fieldPrograms_data()
    {
        const Rows<QString, QByteArray, QByteArrayList> row; // command line, phone, parts of what it prints
        const QByteArray values = R"("values": {"": {"TimeZone": "Asia/Omsk", "ProductName": null}})";
        const QByteArray storage = R"("capacity": 64000, "used": 10000)";
        const auto fault = [](const char *name) {
            return "\"faults\": {\"" + QByteArray(name) + "\": true}";
        };
        row("everything", u"ideviceinfo"_s, {},
            {"DeviceName: iPhone Марии\n", "ProductVersion: 17.5.1\n", "SerialNumber: " + kSerial});
        row("without TLS", u"ideviceinfo"_s, R"("tls": false)", {kSerial});
        row("a value of one's own", u"ideviceinfo -k TimeZone"_s, values, {"Asia/Omsk\n"});
        row("a value taken away", u"ideviceinfo -k ProductName"_s, values, {});
        row("little to a stranger", u"ideviceinfo -s"_s, R"("paired": false)", {"ProductVersion: 17.5.1\n"});
        row("nothing more to a stranger", u"ideviceinfo -s -k SerialNumber"_s, {}, {});
        row("storage", u"ideviceinfo -q com.apple.disk_usage"_s, storage,
            {"TotalDiskCapacity: 64000\n", "AmountDataAvailable: 54000\n"});
        row("charge", u"ideviceinfo -q com.apple.mobile.battery"_s, {}, {"BatteryCurrentCapacity: 82\n"});
        row("battery's registry", u"idevicediagnostics ioregentry AppleSmartBattery"_s, {},
            {"<key>CycleCount</key>\n\t\t<integer>312</integer>"});
        row("battery's gauge", u"idevicediagnostics diagnostics GasGauge"_s, {},
            {"<key>DesignCapacity</key>\n\t\t<integer>3227</integer>"});
        row("apps of the user", u"ideviceinstaller -l"_s, {}, {"ru.primer.kot, \"71\", \"Шашки Кота\"\n"});
        row("apps of the system, in binary", u"ideviceinstaller -l -o list_system"_s, R"("format": "binary")",
            {"com.apple.camera"});
        row("locked", u"idevicepair pair"_s, fault("locked"), {"passcode"});
        row("the question is asked", u"idevicepair pair"_s, fault("untrusted"), {"trust dialog"});
        row("the answer was no", u"idevicepair pair"_s, fault("refused"), {"denied"});
        row("trust taken back", u"ideviceinfo"_s, fault("revoked"), {"Invalid HostID"});
        row("no such certificate", u"ideviceinfo -k SerialNumber"_s, fault("wrongKeys"), {});
    }

    void fieldPrograms()
    {
        const auto &[line, changes, expected] = Row<QString, QByteArray, QByteArrayList>();
        const VirtualPhones phones({phone(changes)});
        const QByteArray printed = phones.print(line.section(u' ', 0, 0), line.split(u' ').mid(1));
        QVERIFY2(!printed.contains(kSerial) || expected.join().contains(kSerial), printed.constData());
        QVERIFY2(!printed.startsWith("failed"), printed.constData());
        for (const QByteArray &text : expected)
            QVERIFY2(printed.contains(text), printed.constData());
    }

    // The keys that a program makes itself are as good as those from the start, until they are given back.
    void pairsAndParts()
    {
        const VirtualPhones phones({phone(R"("paired": false)")});
        const QStringList serial{u"-k"_s, u"SerialNumber"_s};
        const QByteArray id = FirstPhone.toLatin1();
        QVERIFY(phones.print(u"idevicepair"_s, {u"pair"_s}).contains("SUCCESS"));
        QCOMPARE(phones.print(kInfo, serial), kSerial + '\n');
        char *bytes = nullptr;
        uint32_t size = 0;
        QCOMPARE(usbmuxd_read_pair_record(id.constData(), &bytes, &size), 0);
        QVERIFY(phones.print(u"idevicepair"_s, {u"unpair"_s}).contains("SUCCESS"));
        QVERIFY(!phones.isPaired());
        // The phone has forgotten too: the old keys open nothing.
        QCOMPARE(usbmuxd_save_pair_record(id.constData(), bytes, size), 0);
        std::free(bytes);
        const QByteArray refused = phones.print(kInfo, serial);
        QVERIFY2(refused.contains("Invalid HostID"), refused.constData());
    }

    void installs_data()
    {
        const Rows<QByteArray, QByteArray, QByteArray> row; // Info.plist, phone, part of what is printed
        const QByteArray later = "<key>MinimumOSVersion</key><string>17.6</string>";
        const QByteArray tablets = "<key>UIDeviceFamily</key><array><integer>2</integer></array>";
        row("made for this very system", QByteArray(later).replace("6", "5.1"), {}, "Install: Complete");
        row("made for a later system", later, {}, "DeviceOSVersionTooLow");
        row("made for tablets", tablets, {}, "DeviceFamilyNotSupported");
        row("one app that is turned down", {}, R"("installErrors": {"ru.primer.novoe": "InstallProhibited"})",
            "InstallProhibited");
        row("no room", {}, R"("capacity": 5000, "used": 4900)", "AFC Write error");
    }

    // Names that unzip would take for patterns, and a neighbour whose name sorts before the app's own.
    void installs()
    {
        const auto &[info, changes, expected] = Row<QByteArray, QByteArray, QByteArray>();
        VirtualPhones phones({phone(changes)});
        QList<ZipEntry> entries = entriesOfIPA({.id = kApp, .name = u"Новое [1]"_s});
        for (ZipEntry &entry : entries)
            entry.data.replace("<dict>", "<dict><key>CFBundleVersion</key><string>35</string>" + info);
        entries.prepend({.name = "Payload/Новое [1].app/Watch/B.app/Info.plist", .data = "no property list"});
        const QString ipa = phones.filePath(u"новое [1]*.ipa"_s);
        QVERIFY(writeZip(ipa.toStdString(), entries));
        const QByteArray printed = phones.print(kInstaller, {u"-i"_s, ipa});
        QVERIFY2(printed.contains(expected), printed.constData());
        phones.restart();
        const QStringList list{u"-l"_s};
        const bool isInstalled = expected == "Install: Complete";
        QCOMPARE(phones.print(kInstaller, list).contains("ru.primer.novoe, \"35\""), isInstalled);
        if (!isInstalled)
            return;
        QCOMPARE(phones.staged(), QStringList());
        for (const QString &app : {kApp, u"ru.primer.kot"_s})
            QVERIFY(phones.print(kInstaller, {u"-U"_s, app}).contains("Uninstall: Complete"));
        phones.restart();
        QVERIFY(!phones.print(kInstaller, list).contains("ru.primer"));
    }

    // Each layer's damage is met on the wire, and the other layers work on.
    void damagesItsLayerOnly()
    {
        VirtualPhones phones;
        const QByteArray all = "plugged session files diagnostics";
        QCOMPARE(works(), all);
        for (const auto &[layer, left] : {std::pair("mux", ""),
                                          {"lockdown", "plugged"},
                                          {"tls", "plugged"},
                                          {"afc", "plugged session diagnostics"},
                                          {"diagnostics", "plugged session files"},
                                          {"instproxy", "plugged session files diagnostics"},
                                          {"service", "plugged session"}}) {
            const QByteArray damage =
                QByteArray(R"("damage": {"layer": "%1", "kind": "cut", "every": 1})").replace("%1", layer);
            QCOMPARE(phones.change({faultyPhone(damage)}), "reread"_ba);
            QCOMPARE(works(), QByteArray(left));
        }
        QCOMPARE(phones.change({phone()}), "reread"_ba);
        QCOMPARE(works(), all);
    }

    // A misspelt fault would make a test pass for nothing.
    void rejectsConfigurations()
    {
        VirtualPhones phones({phone(), phone({}, SecondPhone)});
        for (const char *wrong :
             {R"("faults": {"lokced": true})", R"("capacity": "1")", R"("nmae": "x")",
              R"("faults": {"mute": "afcc"})", R"("faults": {"damage": {"layer": "usb"}})",
              R"("apps": [{"CFBundleName": "x"}])", R"("udid": "../x")"})
            QCOMPARE(phones.change({phone(wrong)}), "unchanged"_ba);
        const auto listed = [] {
            QProcess list;
            list.start(u"idevice_id"_s, {u"-l"_s});
            return finish(list).output.simplified();
        };
        QCOMPARE(listed(), (FirstPhone + u' ' + SecondPhone).toLatin1());
        QCOMPARE(phones.change({phone()}), "reread"_ba);
        QCOMPARE(listed(), FirstPhone.toLatin1());
    }
};

QTEST_GUILESS_MAIN(VirtualPhoneTest)

#include "tst_virtual_phone.moc"
