// The device tool against virtual phones: through the field's library, over TLS.
#include "devicezarvo/phone_fixture.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString kLost = u"Связь с телефоном прервалась. Проверьте кабель и повторите."_s;
const QString kNotDone = u"Установка не завершена. "_s;
const QString kSilent = u"Телефон не отвечает. Разблокируйте его или переподключите кабель."_s;
const QString kFull = u"На телефоне не хватает места."_s;
constexpr qint64 kBigPadding = 8'000'000; // bytes: several blocks of an upload

QString value(const QJsonObject &reply, const QString &label)
{
    for (const auto line : reply["details"_L1].toArray()) {
        if (line["label"_L1] == label)
            return line["value"_L1].toString().replace(QChar(QChar::Nbsp), u' ');
    }
    return u"(no such line)"_s;
}

/// The version of an app in an answer to `apps`; empty when it is not there.
QString version(const QJsonObject &reply, const QString &id)
{
    for (const auto app : reply["apps"_L1].toArray()) {
        if (app["id"_L1] == id)
            return app["version"_L1].toString();
    }
    return {};
}

/// A socket that nobody listens on, as a service leaves it that was killed.
bool leaveSocket(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= static_cast<qsizetype>(sizeof address.sun_path))
        return false;
    std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool bound = ::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(socket);
    return bound;
}

/// A pipe at `path` that takes no byte more until somebody reads; -1 on failure. To be closed.
int fullPipe(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    const int end =
        ::mkfifo(name.constData(), 0600) == 0 ? ::open(name.constData(), O_RDWR | O_NONBLOCK) : -1;
    while (end >= 0 && ::write(end, "x", 1) == 1) {
    }
    return end;
}

/// True once the process, which is running, has told this on standard error.
bool waitForWords(QProcess &process, const QByteArray &words)
{
    constexpr int patience = 20'000; // ms
    QByteArray seen;
    while (!seen.contains(words) && process.waitForReadyRead(patience))
        seen += process.readAllStandardError();
    if (!seen.contains(words))
        qWarning("not seen: %s\n%s", words.constData(), seen.constData());
    return seen.contains(words);
}

} // namespace

class PhoneCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsPhones();
    void asksForTrustOnlyWhenToldTo();
    void readsApps_data();
    void readsApps();
    void readsDetails();
    void installs_data();
    void installs();
    void tellsFaults_data();
    void tellsFaults();
    void tellsFaultsOfService_data();
    void tellsFaultsOfService();
    void endsWhenTold_data();
    void endsWhenTold();
    void noticesLostPhone_data();
    void noticesLostPhone();
    void endsWhenNobodyReads();
    void failsWhenAnswerIsLost();
    void answersBeforeCallersGiveUp();
};

void PhoneCommandsTest::listsPhones()
{
    QJsonArray config;
    const auto add = [&config](const QString &id, const QString &name, const QJsonObject &faults) {
        config.append(phone({{"name"_L1, name}, {"faults"_L1, faults}}, id));
    };
    add(FirstPhone, u"Мой \"iPhone\" 📱"_s, {});
    add(SecondPhone, u"Locked"_s, {{"locked"_L1, true}});
    add(u"00008DE0-000000000000003C"_s, u"Untrusted"_s, {{"untrusted"_L1, true}});
    add(u"00008DE0-000000000000004D"_s, u"Mute"_s, {{"mute"_L1, u"lockdownd"_s}});
    VirtualPhones phones(config);
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const ToolRun run = phones.run({u"devices"_s}, Limits::Short);
    QVERIFY2(run.isWellFormed(), run.output.constData());
    QMap<QString, QString> names;
    for (const auto device : run.reply["devices"_L1].toArray())
        names.insert(device["id"_L1].toString(),
                     device["name"_L1].toString() + u'/' + device["ios"_L1].toString());
    const QMap<QString, QString> expected{{FirstPhone, u"Мой \"iPhone\" 📱/17.5.1"_s},
                                          {SecondPhone, u"Locked/17.5.1"_s},
                                          {u"00008DE0-000000000000003C"_s, u"Untrusted/17.5.1"_s},
                                          {u"00008DE0-000000000000004D"_s, u"iPhone/"_s}};
    QCOMPARE(names, expected);
}

// Polling every few seconds must never raise the question of trust on the phone; a person's own request does.
void PhoneCommandsTest::asksForTrustOnlyWhenToldTo()
{
    VirtualPhones phones({phone({{"paired"_L1, false}})});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    QCOMPARE(phones.run({u"devices"_s}).reply["devices"_L1].toArray().size(), 1);
    QVERIFY(!phones.isPaired());
    const ToolRun run = phones.run({u"apps"_s, FirstPhone});
    QVERIFY2(run.status == 0, run.output.constData());
    QVERIFY(phones.isPaired());
}

void PhoneCommandsTest::readsApps_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<int>("count");
    QTest::newRow("no app") << u"xml"_s << 0;
    QTest::newRow("several pages") << u"xml"_s << 250;
    QTest::newRow("several pages, binary messages") << u"binary"_s << 250;
    QTest::newRow("without end: not believed") << u"binary"_s << 20'001;
}

void PhoneCommandsTest::readsApps()
{
    QFETCH(const QString, format);
    QFETCH(const int, count);
    QJsonArray apps{
        QJsonObject{{"CFBundleIdentifier"_L1, u"com.apple.x"_s}, {"ApplicationType"_L1, u"System"_s}}};
    for (int i = 0; i < count; ++i) {
        const QString id = u"ru.primer.app%1"_s.arg(i);
        apps.append(QJsonObject{{"CFBundleIdentifier"_L1, id},
                                {"CFBundleShortVersionString"_L1, QString::number(i)},
                                {"ApplicationType"_L1, u"User"_s},
                                {"iTunesMetadata"_L1, QJsonObject{{"itemId"_L1, 1700000000 + i}}}});
    }
    VirtualPhones phones({phone({{"apps"_L1, apps}, {"format"_L1, format}})});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const ToolRun run = phones.run({u"apps"_s, FirstPhone});
    if (count > 20'000) {
        QCOMPARE(run.error(), u"Телефон прислал непонятный ответ."_s);
        return;
    }
    QVERIFY2(run.status == 0 && run.isWellFormed(), run.output.constData());
    QVERIFY2(run.diagnostics.isEmpty(), run.diagnostics.constData());
    const QJsonArray rows = run.reply["apps"_L1].toArray();
    QCOMPARE(rows.size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(version(run.reply, u"ru.primer.app%1"_s.arg(i)), QString::number(i));
    if (count > 0)
        QVERIFY(rows.first()["storeID"_L1].toString().startsWith(u"17000"));
}

void PhoneCommandsTest::readsDetails()
{
    VirtualPhones phones({phone({{"capacity"_L1, 128e9}, {"used"_L1, 8e9}}),
                          phone({{"battery"_L1, QJsonObject()}}, SecondPhone)});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const ToolRun info = phones.run({u"info"_s, FirstPhone});
    QVERIFY2(info.status == 0 && info.isWellFormed(), info.output.constData());
    QCOMPARE(value(info.reply, u"Имя"_s), u"iPhone Марии"_s);
    QCOMPARE(value(info.reply, u"Модель"_s), u"iPhone 13 (iPhone14,5)"_s);
    QCOMPARE(value(info.reply, u"UDID"_s), FirstPhone);
    QCOMPARE(value(info.reply, u"Память, всего"_s), u"128,0 ГБ"_s);
    const ToolRun battery = phones.run({u"--verbose"_s, u"battery"_s, FirstPhone});
    QVERIFY2(battery.status == 0 && battery.isWellFormed(), battery.output.constData());
    QCOMPARE(value(battery.reply, u"Заряд"_s), u"82 %"_s);
    QCOMPARE(value(battery.reply, u"Зарядка"_s), u"заряжается"_s);
    QCOMPARE(value(battery.reply, u"Циклы перезарядки"_s), u"312"_s);
    QCOMPARE(value(battery.reply, u"Температура"_s), u"29,1 °C"_s);
    QVERIFY(!battery.diagnostics.isEmpty());
    for (const char *personal : {"00008DE0", "Марии", "DEMO0000001A"})
        QVERIFY2(!battery.diagnostics.contains(personal), battery.diagnostics.constData());
    const ToolRun without = phones.run({u"battery"_s, SecondPhone});
    QVERIFY2(without.status == 0, without.output.constData());
    QCOMPARE(value(without.reply, u"Циклы перезарядки"_s), u"недоступно"_s);
}

void PhoneCommandsTest::installs_data()
{
    QTest::addColumn<bool>("tls");
    QTest::addColumn<qint64>("padding");
    QTest::newRow("a small app") << true << qint64{0};
    QTest::newRow("several blocks, the last one odd") << true << qint64{kBigPadding + 7};
    QTest::newRow("without encryption") << false << qint64{kBigPadding};
}

void PhoneCommandsTest::installs()
{
    QFETCH(const bool, tls);
    QFETCH(const qint64, padding);
    VirtualPhones phones({phone({{"tls"_L1, tls}, {"appsDirectory"_L1, u"apps"_s}})});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const QString ipa = phones.makeIPA(u"ru.primer.novoe"_s, u"3.5"_s, padding);
    // What a run left that was killed in its middle.
    const QDir staging(phones.filePath(u"state/%1/Media/PublicStaging"_s.arg(FirstPhone)));
    QFile left(staging.filePath(u"zarvo-1500000000-1.ipa"_s));
    QVERIFY(staging.mkpath(u"."_s) && left.open(QIODevice::WriteOnly));
    const ToolRun run = phones.run({u"install"_s, FirstPhone, ipa});
    QVERIFY2(run.status == 0 && run.isWellFormed(), (run.output + run.diagnostics).constData());
    QVERIFY(run.reply["success"_L1].toBool());
    QVERIFY(run.diagnostics.contains("{\"percent\":100,\"stage\":\"upload\"}\n"));
    QVERIFY(run.diagnostics.contains("\"stage\":\"install\"}"));
    QCOMPARE(version(phones.run({u"apps"_s, FirstPhone}).reply, u"ru.primer.novoe"_s), u"3.5"_s);
    QCOMPARE(phones.staged(), QStringList());
}

void PhoneCommandsTest::tellsFaults_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("sentence");
    const auto row = [](const char *name, const QString &command, const QJsonObject &faults,
                        const QString &sentence) { QTest::newRow(name) << command << faults << sentence; };
    const auto mute = [](const QString &place) { return QJsonObject{{"mute"_L1, place}}; };
    const auto refuse = [](const QString &error, const QString &detail = u"0"_s) {
        return QJsonObject{{"installError"_L1, error}, {"installErrorDetail"_L1, detail}};
    };
    const QString revoked =
        u"Телефон больше не доверяет этому компьютеру. Переподключите кабель и подтвердите доверие."_s;

    row("locked", u"apps"_s, {{"locked"_L1, true}},
        u"Телефон заблокирован. Разблокируйте его и повторите."_s);
    row("not trusted yet", u"apps"_s, {{"untrusted"_L1, true}},
        u"Нажмите «Доверять» на экране телефона и введите код-пароль."_s);
    row("trust refused", u"info"_s, {{"refused"_L1, true}},
        u"На телефоне выбрано «Не доверять». Переподключите кабель и нажмите «Доверять»."_s);
    row("trust revoked", u"install"_s, {{"revoked"_L1, true}}, revoked);
    row("the computer's keys are wrong", u"info"_s, {{"wrongKeys"_L1, true}}, revoked);
    row("lost during the upload", u"install"_s, {{"dropUploadAfter"_L1, 3'000'000}}, kNotDone + kLost);
    row("unplugged during the upload", u"install"_s, {{"dropUploadAfter"_L1, 3'000'000}, {"unplug"_L1, true}},
        kNotDone + kLost);
    row("lost during the installation", u"install"_s, {{"dropInstallAt"_L1, 40}}, kNotDone + kLost);
    row("full", u"install"_s, {{"full"_L1, true}}, kFull);
    row("signature refused", u"install"_s, refuse(u"ApplicationVerificationFailed"_s, u"0xe8008015"_s),
        u"Нет подходящего профиля: это сборка для разработчиков, не предназначенная для этого телефона."_s);
    row("system too old", u"install"_s, refuse(u"DeviceOSVersionTooLow"_s),
        u"Нужна более новая версия iOS."_s);
    row("mute at the first word", u"apps"_s, mute(u"lockdownd"_s), kSilent);
    row("mute at the session", u"info"_s, mute(u"session"_s), kSilent);
    row("mute at the list of apps", u"apps"_s, mute(u"installation_proxy"_s), kSilent);
    row("mute at the battery", u"battery"_s, mute(u"diagnostics"_s), kSilent);
    row("mute at the upload", u"install"_s, mute(u"afc"_s), kSilent);
    row("mute in the middle of the installation", u"install"_s, mute(u"install"_s), kSilent);
}

void PhoneCommandsTest::tellsFaults()
{
    QFETCH(const QString, command);
    QFETCH(const QJsonObject, faults);
    VirtualPhones phones({faultyPhone(faults)});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    QStringList arguments{command, FirstPhone};
    if (command == "install"_L1)
        arguments.append(phones.makeIPA(u"ru.primer.novoe"_s, u"3.5"_s, kBigPadding));
    // The shipped limits wait half a minute for a mute phone.
    const bool mute = faults.contains("mute"_L1);
    const ToolRun run = phones.run(arguments, mute ? Limits::Short : Limits::Shipped);
    QVERIFY2(run.status == 1 && run.isWellFormed(), run.output.constData());
    QTEST(run.error(), "sentence");
    QCOMPARE(run.reply.contains("success"_L1), command == "install"_L1);
    QVERIFY(!run.reply["success"_L1].toBool());
    // What can be reached is cleaned up.
    if (command == "install"_L1 && faults["mute"_L1] != "afc"_L1 && !faults.contains("unplug"_L1) &&
        !faults.contains("revoked"_L1) && !faults.contains("dropUploadAfter"_L1))
        QCOMPARE(phones.staged(), QStringList());
}

void PhoneCommandsTest::tellsFaultsOfService_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("service"); // missing, dead, forbidden, mute, another phone
    QTest::addColumn<QString>("sentence");
    const QString absent =
        u"Служба usbmuxd не запущена. Подключите телефон кабелем; если не поможет, установите пакет usbmuxd."_s;
    const QString silent = u"Служба usbmuxd не отвечает. Отключите и снова подключите телефон."_s;
    QTest::newRow("missing: no phones, no error") << u"devices"_s << u"missing"_s << QString();
    QTest::newRow("missing: told to who wants a phone") << u"apps"_s << u"missing"_s << absent;
    QTest::newRow("its socket is left over: no phones") << u"devices"_s << u"dead"_s << QString();
    QTest::newRow("its socket is left over: told") << u"battery"_s << u"dead"_s << absent;
    QTest::newRow("it answers nobody") << u"devices"_s << u"mute"_s << silent;
    QTest::newRow("it answers nobody about a phone") << u"info"_s << u"mute"_s << silent;
    QTest::newRow("it is closed to this user")
        << u"devices"_s << u"forbidden"_s
        << u"Нет прав на доступ к службе usbmuxd. Переустановите пакет usbmuxd и перезагрузите компьютер."_s;
    QTest::newRow("the phone is gone") << u"info"_s << u"another phone"_s << kLost;
}

void PhoneCommandsTest::tellsFaultsOfService()
{
    QFETCH(const QString, command);
    QFETCH(const QString, service);
    QFETCH(const QString, sentence);
    const QString id = service == "another phone"_L1 ? SecondPhone : FirstPhone;
    VirtualPhones phones({phone()}, service == "mute"_L1);
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const QString socket = phones.filePath(u"socket"_s);
    if (service == "missing"_L1 || service == "dead"_L1)
        QVERIFY(QFile::rename(socket, socket + u".away"_s));
    if (service == "dead"_L1)
        QVERIFY(leaveSocket(socket));
    if (service == "forbidden"_L1)
        phones.forbid();
    const ToolRun run =
        phones.run(command == "devices"_L1 ? QStringList{command} : QStringList{command, id}, Limits::Short);
    QVERIFY2(run.isWellFormed(), run.output.constData());
    QCOMPARE(run.error(), sentence);
    QCOMPARE(run.reply.contains("devices"_L1), sentence.isEmpty());
}

void PhoneCommandsTest::endsWhenTold_data()
{
    QTest::addColumn<QString>("when");
    QTest::newRow("during the upload: taken back") << u"upload"_s;
    QTest::newRow("during the installation: taken back") << u"install"_s;
    QTest::newRow("while the phone is mute") << u"mute"_s;
}

void PhoneCommandsTest::endsWhenTold()
{
    QFETCH(const QString, when);
    QJsonObject config{{"uploadRate"_L1, when == "upload"_L1 ? 2'000'000 : 0}, {"statusInterval"_L1, 2'000}};
    if (when == "mute"_L1)
        config["faults"_L1] = QJsonObject{{"mute"_L1, u"afc"_s}};
    VirtualPhones phones({phone(config)});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const QString ipa = phones.makeIPA(u"ru.primer.novoe"_s, u"3.5"_s, kBigPadding);
    const auto process = phones.start({u"--verbose"_s, u"install"_s, FirstPhone, ipa});
    const QByteArray sign = when == "mute"_L1 ? "start com.apple.afc" : "\"stage\":\"" + when.toUtf8();
    QVERIFY(waitForWords(*process, sign));
    if (when != "mute"_L1)
        QCOMPARE(phones.staged().size(), 1);
    const auto told = std::chrono::steady_clock::now();
    process->terminate();
    const ToolRun run = finish(*process);
    QVERIFY(std::chrono::steady_clock::now() - told < 2s);
    QVERIFY2(run.isWellFormed(), run.output.constData());
    QCOMPARE(run.error(), u"Операция отменена."_s);
    if (when != "mute"_L1)
        QCOMPARE(phones.staged(), QStringList());
    QCOMPARE(version(phones.run({u"apps"_s, FirstPhone}).reply, u"ru.primer.novoe"_s), QString());
}

void PhoneCommandsTest::noticesLostPhone_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("place"); // where the phone falls silent, then goes
    QTest::addColumn<QByteArray>("sign");
    QTest::newRow("at the session") << u"info"_s << u"session"_s << QByteArray("look up the phone: 0");
    QTest::newRow("at the details") << u"info"_s << u"values"_s << QByteArray("use the session: 0");
    QTest::newRow("at the list of apps")
        << u"apps"_s << u"installation_proxy"_s << QByteArray("send a command: 0");
    QTest::newRow("at the battery") << u"battery"_s << u"diagnostics"_s
                                    << QByteArray("connect to com.apple.mobile.diagnostics_relay: 0");
}

void PhoneCommandsTest::noticesLostPhone()
{
    QFETCH(const QString, command);
    QFETCH(const QString, place);
    QFETCH(const QByteArray, sign);
    VirtualPhones phones({faultyPhone({{"mute"_L1, place}})});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const auto process = phones.start({u"--verbose"_s, command, FirstPhone});
    QVERIFY(waitForWords(*process, sign));
    QTest::qWait(200); // it says so before it waits
    phones.vanish();
    const ToolRun run = finish(*process);
    QVERIFY2(run.isWellFormed(), run.output.constData());
    QCOMPARE(run.error(), kLost);
}

// Whoever started it may have stopped reading: a limit of time holds all the same.
void PhoneCommandsTest::endsWhenNobodyReads()
{
    VirtualPhones phones({phone()});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const QString path = phones.filePath(u"pipe"_s);
    const int pipe = fullPipe(path);
    QVERIFY(pipe >= 0);
    const auto answering = phones.prepare({u"devices"_s}, Limits::Short);
    answering->setStandardOutputFile(path);
    answering->start();
    const auto diagnosing = phones.prepare({u"--verbose"_s, u"info"_s, FirstPhone}, Limits::Short);
    diagnosing->setStandardErrorFile(path);
    diagnosing->start();
    for (QProcess *process : {answering.get(), diagnosing.get()}) {
        constexpr int patience = 15'000; // ms
        const bool ended = process->waitForFinished(patience);
        process->kill();
        QVERIFY(ended && process->exitStatus() == QProcess::NormalExit);
        QCOMPARE(process->exitCode(), 1);
    }
    ::close(pipe);
    QVERIFY(finish(*diagnosing).output.contains("error"));
}

void PhoneCommandsTest::failsWhenAnswerIsLost()
{
    VirtualPhones phones({phone()});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    for (const QString &word : {u"devices"_s, u"--help"_s}) {
        const auto process = phones.prepare({word});
        process->setStandardOutputFile(u"/dev/full"_s);
        process->start();
        QCOMPARE(finish(*process).status, 1);
    }
}

// With the limits that the users get: a list that a mute phone is on, for a caller who waits 15 s and polls
// every 6.
void PhoneCommandsTest::answersBeforeCallersGiveUp()
{
    VirtualPhones phones(
        {phone(), phone({{"faults"_L1, QJsonObject{{"mute"_L1, u"lockdownd"_s}}}}, SecondPhone)});
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const ToolRun run = phones.run({u"devices"_s});
    QVERIFY2(run.status == 0 && run.isWellFormed(), run.output.constData());
    QCOMPARE(run.reply["devices"_L1].toArray().size(), 2);
    QVERIFY(run.time < 6s);
}

QTEST_GUILESS_MAIN(PhoneCommandsTest)

#include "tst_phone_commands.moc"
