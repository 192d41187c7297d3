// The faults that the virtual phone plays are those that were asked for; nothing that a client says is one.
#include "damage.h"
#include "plist_codec.h"
#include "virtual_phone/plugged_phones.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QTest>
#include <QtEndian>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/diagnostics_relay.h>
#include <libimobiledevice/lockdown.h>

#include <random>

using namespace Qt::StringLiterals;

namespace {

constexpr Framing kFraming{.header = 4, .lengthAt = 0, .lengthBytes = 4, .bigEndian = true};
constexpr int kPatience = 10'000; // ms

/// What a message becomes, for the first hundred of a seed; untouched ones are empty.
QList<QByteArray> damaged(const DamageConfig &config)
{
    Damager damager(config);
    QList<QByteArray> list;
    for (int i = 0; i < 100; ++i) {
        auto blow = damager.next(config.layer);
        QByteArray frame;
        if (blow) {
            QVariant message = QVariantMap{{u"a"_s, u"text"_s}, {u"b"_s, QVariantList{1, true}}};
            blow->retype(message);
            frame = QByteArray("\0\0\1\0", 4) + encodePlist(message);
            blow->strike(frame, kFraming);
        }
        list.append(frame);
    }
    return list;
}

QByteArray muxMessage(const QVariantMap &message)
{
    const QByteArray body = encodePlist(message);
    QByteArray header(16, '\0');
    qToLittleEndian(static_cast<quint32>(16 + body.size()), header.data());
    header[4] = 1;
    header[8] = 8;
    return header + body;
}

QByteArray lockdownMessage(const QVariantMap &message)
{
    const QByteArray body = encodePlist(message);
    QByteArray header(4, '\0');
    qToBigEndian(static_cast<quint32>(body.size()), header.data());
    return header + body;
}

} // namespace

class PhoneFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void damagesBySeed_data();
    void damagesBySeed();
    void damagesItsLayerOnly();
    void losesUploads_data();
    void losesUploads();
    void staysMute_data();
    void staysMute();
    void survivesItsClients_data();
    void survivesItsClients();
};

void PhoneFaultsTest::damagesBySeed_data()
{
    QTest::addColumn<DamageKind>("kind");
    QTest::newRow("flip: as long, but not the same") << DamageKind::Flip;
    QTest::newRow("cut: a beginning of the message") << DamageKind::Cut;
    QTest::newRow("type: sound, but of other types") << DamageKind::Type;
    QTest::newRow("length: another number in front") << DamageKind::Length;
}

void PhoneFaultsTest::damagesBySeed()
{
    QFETCH(const DamageKind, kind);
    const DamageConfig config{.layer = Layer::Lockdown, .seed = 7, .kind = kind, .every = 2};
    const QVariantMap sound{{u"a"_s, u"text"_s}, {u"b"_s, QVariantList{1, true}}};
    const QByteArray whole = QByteArray("\0\0\1\0", 4) + encodePlist(sound);
    const QList<QByteArray> first = damaged(config);
    QCOMPARE(damaged(config), first);
    DamageConfig other = config;
    other.seed = 8;
    QVERIFY(damaged(other) != first);
    int struck = 0;
    for (const QByteArray &frame : first) {
        if (frame.isEmpty() && kind != DamageKind::Cut)
            continue;
        struck += frame.isEmpty() ? 0 : 1;
        if (kind == DamageKind::Cut)
            QVERIFY(whole.startsWith(frame) && frame != whole);
        else if (kind == DamageKind::Length)
            QVERIFY(frame.sliced(4) == whole.sliced(4));
        else if (kind == DamageKind::Type)
            QVERIFY(frame.startsWith(whole.first(4)) && frame != whole && frame.endsWith("</plist>\n"));
        else
            QVERIFY(frame.size() == whole.size());
    }
    QVERIFY2(struck > 30 && struck < 70, QByteArray::number(struck).constData());
    QVERIFY(first.count(whole) <= struck / 4); // a bit that is turned twice, a length that is the right one
}

// Each layer's damage is met on the wire, and the other layers work on.
void PhoneFaultsTest::damagesItsLayerOnly()
{
    const auto faults = [](const char *layer) {
        const QJsonObject damage{
            {"layer"_L1, QString::fromLatin1(layer)}, {"kind"_L1, u"cut"_s}, {"every"_L1, 1}};
        return QJsonArray{soundPhone({{"faults"_L1, QJsonObject{{"damage"_L1, damage}}}})};
    };
    struct Outcome
    {
        bool plugged, session, files, diagnostics;
        bool operator==(const Outcome &) const = default;
    };
    PluggedPhones phones({soundPhone()});
    QVERIFY(phones.isReady());
    const auto outcome = [] {
        const Device device = openDevice();
        Outcome seen{device != nullptr, false, false, false};
        lockdownd_client_t lockdown = nullptr;
        if (device &&
            lockdownd_client_new_with_handshake(device.get(), &lockdown, "test") == LOCKDOWN_E_SUCCESS) {
            char *name = nullptr;
            seen.session = lockdownd_get_device_name(lockdown, &name) == LOCKDOWN_E_SUCCESS;
            std::free(name);
            lockdownd_client_free(lockdown);
        }
        afc_client_t afc = nullptr;
        if (seen.session && afc_client_start_service(device.get(), &afc, "test") == AFC_E_SUCCESS) {
            seen.files = afc_make_directory(afc, "folder") == AFC_E_SUCCESS;
            afc_client_free(afc);
        }
        diagnostics_relay_client_t relay = nullptr;
        if (seen.session && diagnostics_relay_client_start_service(device.get(), &relay, "test") ==
                                DIAGNOSTICS_RELAY_E_SUCCESS) {
            plist_t all = nullptr;
            seen.diagnostics =
                diagnostics_relay_request_diagnostics(relay, "All", &all) == DIAGNOSTICS_RELAY_E_SUCCESS;
            plist_free(all);
            diagnostics_relay_client_free(relay);
        }
        return seen;
    };
    QVERIFY(outcome() == (Outcome{true, true, true, true}));
    const std::pair<const char *, Outcome> expected[] = {
        {"mux", {false, false, false, false}},      {"lockdown", {true, false, false, false}},
        {"tls", {true, false, false, false}},       {"afc", {true, true, false, true}},
        {"diagnostics", {true, true, true, false}}, {"instproxy", {true, true, true, true}},
        {"service", {true, true, false, false}}};
    for (const auto &[layer, seen] : expected) {
        QCOMPARE(phones.change(faults(layer)), "reread"_ba);
        const Outcome met = outcome();
        QVERIFY2(met == seen, QByteArray(layer)
                                  .append(met.plugged ? " plugged" : "")
                                  .append(met.session ? " session" : "")
                                  .append(met.files ? " files" : "")
                                  .append(met.diagnostics ? " diagnostics" : "")
                                  .constData());
    }
    QCOMPARE(phones.change(QJsonArray{soundPhone()}), "reread"_ba);
    QVERIFY(outcome() == (Outcome{true, true, true, true}));
}

void PhoneFaultsTest::losesUploads_data()
{
    QTest::addColumn<bool>("unplug");
    QTest::newRow("the connection is lost, the phone is still there") << false;
    QTest::newRow("the phone is gone until it is plugged in again") << true;
}

void PhoneFaultsTest::losesUploads()
{
    QFETCH(const bool, unplug);
    const QJsonArray config{
        soundPhone({{"faults"_L1, QJsonObject{{"dropUploadAfter"_L1, 100'000}, {"unplug"_L1, unplug}}}})};
    PluggedPhones phones(config);
    {
        const Device device = openDevice();
        afc_client_t afc = nullptr;
        QCOMPARE(afc_client_start_service(device.get(), &afc, "test"), AFC_E_SUCCESS);
        uint64_t file = 0;
        QCOMPARE(afc_file_open(afc, "a", AFC_FOPEN_WRONLY, &file), AFC_E_SUCCESS);
        const QByteArray block(60'000, 'a');
        uint32_t written = 0;
        QCOMPARE(afc_file_write(afc, file, block.constData(), 60'000, &written), AFC_E_SUCCESS);
        QVERIFY(afc_file_write(afc, file, block.constData(), 60'000, &written) != AFC_E_SUCCESS);
        afc_client_free(afc);
    }
    QCOMPARE(openDevice() == nullptr, unplug);
    QCOMPARE(phones.change(config), "reread"_ba);
    QVERIFY(openDevice() != nullptr);
}

void PhoneFaultsTest::staysMute_data()
{
    QTest::addColumn<QString>("place");
    QTest::addColumn<bool>("connects");
    QTest::addColumn<bool>("saysWhatItIs");
    QTest::newRow("service of the cable: no connection") << u"usbmuxd"_s << false << false;
    QTest::newRow("lockdown: connected, nothing said") << u"lockdownd"_s << true << false;
    QTest::newRow("session: says what it is, no session") << u"session"_s << true << true;
}

// Seen on the wire: the library would wait for half a minute.
void PhoneFaultsTest::staysMute()
{
    QFETCH(const QString, place);
    QFETCH(const bool, connects);
    QFETCH(const bool, saysWhatItIs);
    const PluggedPhones phones({soundPhone({{"faults"_L1, QJsonObject{{"mute"_L1, place}}}})});
    QLocalSocket client;
    client.connectToServer(phones.socketPath());
    QVERIFY(client.waitForConnected(kPatience));
    const auto answers = [&client](const QByteArray &message, int limit) {
        client.write(message);
        const bool answered = client.waitForReadyRead(limit);
        client.readAll();
        return answered;
    };
    constexpr int silence = 700; // ms; a sound phone takes a few
    const quint16 port = qbswap(quint16{62078});
    QCOMPARE(
        answers(muxMessage({{u"MessageType"_s, u"Connect"_s}, {u"DeviceID"_s, 1}, {u"PortNumber"_s, port}}),
                connects ? kPatience : silence),
        connects);
    QCOMPARE(answers(lockdownMessage({{u"Request"_s, u"QueryType"_s}}), saysWhatItIs ? kPatience : silence),
             saysWhatItIs);
    QVERIFY(!answers(lockdownMessage({{u"Request"_s, u"StartSession"_s}, {u"HostID"_s, u"x"_s}}), silence));
    QCOMPARE(client.state(), QLocalSocket::ConnectedState);
}

void PhoneFaultsTest::survivesItsClients_data()
{
    QTest::addColumn<bool>("connected");
    QTest::newRow("the service of the cable") << false;
    QTest::newRow("lockdown") << true;
}

// Whatever a broken client sends, the phone does not fall, grow or hang: the next client is served.
void PhoneFaultsTest::survivesItsClients()
{
    QFETCH(const bool, connected);
    const PluggedPhones phones({soundPhone()});
    std::mt19937 random(20);
    const quint16 port = qbswap(quint16{62078});
    const QByteArray connect =
        muxMessage({{u"MessageType"_s, u"Connect"_s}, {u"DeviceID"_s, 1}, {u"PortNumber"_s, port}});
    const QStringList requests{u"GetValue"_s, u"Pair"_s, u"StartSession"_s, u"StartService"_s,
                               u"StopSession"_s};
    for (int i = 0; i < 300; ++i) {
        QLocalSocket client;
        client.connectToServer(phones.socketPath());
        QVERIFY(client.waitForConnected(kPatience));
        QByteArray message =
            connected
                ? lockdownMessage(
                      {{u"Request"_s, requests[i % requests.size()]},
                       {u"PairRecord"_s, QVariantMap{{u"HostID"_s, u"x"_s}, {u"HostCertificate"_s, "x"_ba}}}})
                : muxMessage({{u"MessageType"_s, u"ReadPairRecord"_s}, {u"PairRecordID"_s, kUdid}});
        // Some are sound, so that refusals are met too.
        for (quint32 left = random() % 4; left > 0; --left) {
            char &byte = message[static_cast<qsizetype>(random() % static_cast<quint32>(message.size()))];
            byte = static_cast<char>(byte ^ (1 << random() % 8));
        }
        if (i % 7 == 0)
            message.truncate(static_cast<qsizetype>(random() % static_cast<quint32>(message.size())));
        if (connected) {
            client.write(connect);
            QVERIFY(client.waitForReadyRead(kPatience));
        }
        client.write(message);
        client.waitForReadyRead(5);
    }
    QVERIFY(phones.isRunning());
    const ProgramRun run = phones.run(u"ideviceinfo"_s, {u"-k"_s, u"SerialNumber"_s});
    QCOMPARE(run.output, "DEMO0000001A\n"_ba);
}

QTEST_GUILESS_MAIN(PhoneFaultsTest)

#include "tst_phone_faults.moc"
