// What the library of the field gets from the virtual phone: files, events, large lists.
#include "config.h"
#include "virtual_phone/plugged_phones.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/installation_proxy.h>
#include <libimobiledevice/lockdown.h>

#include <algorithm>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatience = 10'000; // ms
constexpr uint32_t kBlock = 1 << 20;

struct AfcDeleter
{
    void operator()(afc_client_t client) const { afc_client_free(client); }
};
using Afc = std::unique_ptr<std::remove_pointer_t<afc_client_t>, AfcDeleter>;

Afc openAfc(const Device &device)
{
    afc_client_t client = nullptr;
    afc_client_start_service(device.get(), &client, "test");
    return Afc(client);
}

QMap<QByteArray, QByteArray> fileInfo(const Afc &afc, const char *path)
{
    char **info = nullptr;
    QMap<QByteArray, QByteArray> values;
    if (afc_get_file_info(afc.get(), path, &info) != AFC_E_SUCCESS)
        return values;
    for (char **name = info; name[0] && name[1]; name += 2)
        values.insert(name[0], name[1]);
    afc_dictionary_free(info);
    return values;
}

QList<QByteArray> directory(const Afc &afc, const char *path)
{
    char **names = nullptr;
    QList<QByteArray> list;
    if (afc_read_directory(afc.get(), path, &names) != AFC_E_SUCCESS)
        return list;
    for (char **name = names; *name; ++name)
        list.append(*name);
    afc_dictionary_free(names);
    return list;
}

afc_error_t put(const Afc &afc, const char *path, const QByteArray &bytes)
{
    uint64_t file = 0;
    if (const auto error = afc_file_open(afc.get(), path, AFC_FOPEN_WRONLY, &file); error != AFC_E_SUCCESS)
        return error;
    uint32_t written = 0;
    const auto error =
        afc_file_write(afc.get(), file, bytes.constData(), static_cast<uint32_t>(bytes.size()), &written);
    afc_file_close(afc.get(), file);
    return error;
}

/// Resident memory of a process at its highest, in KB.
qint64 peakMemory(qint64 process)
{
    QFile status(u"/proc/%1/status"_s.arg(process));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace

class PhoneServicesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsFiles();
    void keepsToItsFolder();
    void countsItsRoom();
    void takesLargeUploads_data();
    void takesLargeUploads();
    void listsManyApps();
    void tellsWhoListens();
    void dropsIdleClients();
    void rejectsConfigurations_data();
    void rejectsConfigurations();
};

void PhoneServicesTest::keepsFiles()
{
    const PluggedPhones phones({soundPhone()});
    const Device device = openDevice();
    const Afc afc = openAfc(device);
    QVERIFY(afc);
    QCOMPARE(afc_make_directory(afc.get(), "/a/b"), AFC_E_SUCCESS);
    QCOMPARE(put(afc, "a/b/имя", "0123456789"), AFC_E_SUCCESS);
    QCOMPARE(fileInfo(afc, "a/b/имя")["st_size"], "10"_ba);
    QCOMPARE(fileInfo(afc, "a")["st_ifmt"], "S_IFDIR"_ba);
    QVERIFY(directory(afc, "a/b").contains(QByteArray("имя")));

    uint64_t file = 0;
    QCOMPARE(afc_file_open(afc.get(), "a/b/имя", AFC_FOPEN_RW, &file), AFC_E_SUCCESS);
    QCOMPARE(afc_file_seek(afc.get(), file, -4, SEEK_END), AFC_E_SUCCESS);
    uint64_t position = 0;
    QCOMPARE(afc_file_tell(afc.get(), file, &position), AFC_E_SUCCESS);
    QCOMPARE(position, 6u);
    QByteArray read(16, '\0');
    uint32_t got = 0;
    QCOMPARE(afc_file_read(afc.get(), file, read.data(), 16, &got), AFC_E_SUCCESS);
    QCOMPARE(read.first(got), "6789"_ba);
    QCOMPARE(afc_file_truncate(afc.get(), file, 3), AFC_E_SUCCESS);
    QCOMPARE(afc_file_close(afc.get(), file), AFC_E_SUCCESS);
    QCOMPARE(afc_file_read(afc.get(), file, read.data(), 16, &got), AFC_E_INVALID_ARG);

    QCOMPARE(afc_rename_path(afc.get(), "a/b/имя", "a/c"), AFC_E_SUCCESS);
    QCOMPARE(fileInfo(afc, "a/c")["st_size"], "3"_ba);
    QCOMPARE(afc_remove_path(afc.get(), "a"), AFC_E_DIR_NOT_EMPTY);
    QCOMPARE(afc_remove_path_and_contents(afc.get(), "a"), AFC_E_SUCCESS);
    QCOMPARE(afc_remove_path(afc.get(), "a"), AFC_E_OBJECT_NOT_FOUND);
}

void PhoneServicesTest::keepsToItsFolder()
{
    const PluggedPhones phones({soundPhone()});
    const Device device = openDevice();
    const Afc afc = openAfc(device);
    QVERIFY(afc);
    for (const char *path : {"../x", "/a/../../x", "..", "a/.."}) {
        QCOMPARE(put(afc, path, "x"), AFC_E_PERM_DENIED);
        QCOMPARE(afc_make_directory(afc.get(), path), AFC_E_PERM_DENIED);
        QCOMPARE(afc_remove_path_and_contents(afc.get(), path), AFC_E_PERM_DENIED);
    }
    QCOMPARE(afc_make_link(afc.get(), AFC_SYMLINK, "/etc", "link"), AFC_E_OP_NOT_SUPPORTED);
    QVERIFY(!QFile::exists(phones.filePath(u"state/x"_s)));
    QCOMPARE(directory(afc, "/"), (QList<QByteArray>{".", ".."}));
}

// Room is taken by writing, given back by removing, overwriting and truncating, and never counted twice.
void PhoneServicesTest::countsItsRoom()
{
    const PluggedPhones phones({soundPhone({{"capacity"_L1, 10'000}, {"used"_L1, 4'000}})});
    const Device device = openDevice();
    const Afc afc = openAfc(device);
    QVERIFY(afc);
    const auto room = [&afc] {
        char *value = nullptr;
        afc_get_device_info_key(afc.get(), "FSFreeBytes", &value);
        const QByteArray text(value);
        std::free(value);
        return text.toInt();
    };
    QCOMPARE(put(afc, "a", QByteArray(5'000, 'a')), AFC_E_SUCCESS);
    QCOMPARE(room(), 1'000);
    QCOMPARE(put(afc, "a", QByteArray(2'000, 'a')), AFC_E_SUCCESS);
    QCOMPARE(room(), 4'000);
    QCOMPARE(put(afc, "b", QByteArray(4'001, 'b')), AFC_E_NO_SPACE_LEFT);
    QCOMPARE(room(), 4'000);
    QCOMPARE(afc_truncate(afc.get(), "a", 500), AFC_E_SUCCESS);
    QCOMPARE(room(), 5'500);
    QCOMPARE(afc_truncate(afc.get(), "missing", 1), AFC_E_OBJECT_NOT_FOUND);
    QCOMPARE(afc_remove_path(afc.get(), "a"), AFC_E_SUCCESS);
    QCOMPARE(room(), 6'000);
}

void PhoneServicesTest::takesLargeUploads_data()
{
    QTest::addColumn<QString>("uploads");
    QTest::newRow("kept: byte for byte") << u"keep"_s;
    QTest::newRow("discarded: nothing but the size") << u"discard"_s;
}

void PhoneServicesTest::takesLargeUploads()
{
    QFETCH(const QString, uploads);
    PluggedPhones phones({soundPhone({{"uploads"_L1, uploads}})});
    const Device device = openDevice();
    const Afc afc = openAfc(device);
    QVERIFY(afc);
    QByteArray block(kBlock, Qt::Uninitialized);
    for (uint32_t i = 0; i < kBlock; ++i)
        block[i] = static_cast<char>(i * 2654435761u >> 24);
    constexpr int blocks = 64;
    uint64_t file = 0;
    QCOMPARE(afc_file_open(afc.get(), "large", AFC_FOPEN_WRONLY, &file), AFC_E_SUCCESS);
    uint32_t written = 0;
    for (int i = 0; i < blocks; ++i)
        QCOMPARE(afc_file_write(afc.get(), file, block.constData(), kBlock, &written), AFC_E_SUCCESS);
    QCOMPARE(afc_file_close(afc.get(), file), AFC_E_SUCCESS);
    QCOMPARE(fileInfo(afc, "large")["st_size"], QByteArray::number(qint64{blocks} * kBlock));
    QFile kept(phones.filePath(u"state/%1/Media/large"_s.arg(kUdid)));
    QVERIFY(kept.open(QIODevice::ReadOnly));
    const QByteArray expected = uploads == "keep"_L1 ? block : QByteArray(kBlock, '\0');
    for (int i = 0; i < blocks; ++i)
        QVERIFY(kept.read(kBlock) == expected);
    const qint64 memory = peakMemory(phones.processId());
    QVERIFY2(memory > 0 && memory < 48 * 1024, QByteArray::number(memory).constData());
}

void PhoneServicesTest::listsManyApps()
{
    QJsonArray apps;
    for (int i = 0; i < 601; ++i)
        apps.append(QJsonObject{{"CFBundleIdentifier"_L1, u"ru.primer.app%1"_s.arg(i)}});
    const PluggedPhones phones({soundPhone({{"apps"_L1, apps}})});
    const Device device = openDevice();
    instproxy_client_t proxy = nullptr;
    QCOMPARE(instproxy_client_start_service(device.get(), &proxy, "test"), INSTPROXY_E_SUCCESS);
    plist_t list = nullptr;
    QCOMPARE(instproxy_browse(proxy, nullptr, &list), INSTPROXY_E_SUCCESS);
    QCOMPARE(plist_array_get_size(list), 601u);
    plist_free(list);
    instproxy_client_free(proxy);
}

void PhoneServicesTest::tellsWhoListens()
{
    static std::mutex mutex;
    static QList<QByteArray> events;
    const QString second = u"b00000000000000000000000000000000000000b"_s;
    PluggedPhones phones({soundPhone()});
    QVERIFY(phones.isReady());
    idevice_event_subscribe(
        [](const idevice_event_t *event, void *) {
            const std::scoped_lock lock(mutex);
            events.append((event->event == IDEVICE_DEVICE_ADD ? "+" : "-") +
                          QByteArray(event->udid).right(2));
        },
        nullptr);
    const auto seen = [] {
        const std::scoped_lock lock(mutex);
        return events;
    };
    QTRY_COMPARE_WITH_TIMEOUT(seen(), (QList<QByteArray>{"+1A"}), kPatience);
    phones.change(QJsonArray{soundPhone(), soundPhone({{"udid"_L1, second}})});
    QTRY_COMPARE_WITH_TIMEOUT(seen(), (QList<QByteArray>{"+1A", "+0b"}), kPatience);
    // A configuration with a fault changes nothing.
    QCOMPARE(phones.change("{\"phones\": [{}]}"_ba), "unchanged"_ba);
    phones.change(QJsonArray{soundPhone({{"udid"_L1, second}, {"name"_L1, u"another"_s}})});
    QTRY_COMPARE_WITH_TIMEOUT(seen(), (QList<QByteArray>{"+1A", "+0b", "-1A"}), kPatience);
    idevice_event_unsubscribe();
}

void PhoneServicesTest::dropsIdleClients()
{
    const PluggedPhones phones({soundPhone({{"idleLimit"_L1, 200}})});
    const Device device = openDevice();
    lockdownd_client_t client = nullptr;
    QCOMPARE(lockdownd_client_new_with_handshake(device.get(), &client, "test"), LOCKDOWN_E_SUCCESS);
    char *name = nullptr;
    QCOMPARE(lockdownd_get_device_name(client, &name), LOCKDOWN_E_SUCCESS);
    std::free(name);
    QTest::qSleep(600);
    lockdownd_service_descriptor_t service = nullptr;
    QVERIFY(lockdownd_start_service(client, AFC_SERVICE_NAME, &service) != LOCKDOWN_E_SUCCESS);
    lockdownd_client_free(client);
}

void PhoneServicesTest::rejectsConfigurations_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QString>("error");
    const auto phone = [](const char *members) {
        return "{\"phones\": [{\"udid\": \"x\", " + QByteArray(members) + "}]}";
    };
    QTest::newRow("misspelt fault") << phone(R"("faults": {"lokced": true})") << u"lokced"_s;
    QTest::newRow("misspelt member") << phone(R"("nmae": "x")") << u"nmae"_s;
    QTest::newRow("wrong type") << phone(R"("capacity": "1")") << u"capacity"_s;
    QTest::newRow("unknown place to be mute") << phone(R"("faults": {"mute": "afcc"})") << u"mute"_s;
    QTest::newRow("unknown layer") << phone(R"("faults": {"damage": {"layer": "usb"}})") << u"layer"_s;
    QTest::newRow("app without identifier") << phone(R"("apps": [{"CFBundleName": "x"}])") << u"apps"_s;
    QTest::newRow("phone whose files would lie elsewhere")
        << R"({"phones": [{"udid": "../x"}]})"_ba << u"udid"_s;
    QTest::newRow("no JSON") << "{"_ba << u"JSON"_s;
}

void PhoneServicesTest::rejectsConfigurations()
{
    QFETCH(const QByteArray, config);
    QFETCH(const QString, error);
    QTemporaryDir folder;
    QFile file(folder.filePath(u"config.json"_s));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(config) > 0);
    file.close();
    QString said;
    QVERIFY(!readConfig(file.fileName(), &said));
    QVERIFY2(said.contains(error), qPrintable(said));
}

QTEST_GUILESS_MAIN(PhoneServicesTest)

#include "tst_phone_services.moc"
