// The device tool against virtual phones: through the field's library, over TLS.
#include "device/device_records.h"
#include "devicezarvo/phone_fixture.h"
#include "store/diagnostic_redaction.h"
#include "store/known_secrets.h"
#include "support/rows.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString kLost = u"Связь с телефоном прервалась. Проверьте кабель и повторите."_s;
const QString kNotDone = u"Установка не завершена. "_s;
const QString kSilent = u"Телефон не отвечает. Разблокируйте его или переподключите кабель."_s;
constexpr const char *kPlayedApp = R"(, {"CFBundleIdentifier": "app.%1", "CFBundleShortVersionString": "%1",)"
                                   R"("ApplicationType": "User", "iTunesMetadata": {"itemId": 1700000000}})";
const QString kApp = u"ru.primer.novoe"_s;
constexpr qint64 kBigPadding = 8'000'000; // bytes: several blocks of an upload

/// "label=value" of the details that are known.
QString values(const QJsonObject &reply)
{
    QStringList lines;
    for (const auto line : reply["details"_L1].toArray())
        lines.append(line["label"_L1].toString() + u'=' + line["value"_L1].toString());
    lines.removeIf([](const QString &line) { return line.endsWith(u"=недоступно"); });
    return lines.join(u'|').replace(QChar(QChar::Nbsp), u' ');
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
    // With the limits that the users get: a list that a mute phone is on, for a caller who polls every 6 s.
    void listsPhones()
    {
        const QString untrusted = u"00008DE0-000000000000003C"_s;
        const QString mute = u"00008DE0-000000000000004D"_s;
        const VirtualPhones phones(
            {phone("\"name\": \"Мой \\\"iPhone\\\" 📱\""), faultyPhone(R"("locked": true)", SecondPhone),
             faultyPhone(R"("untrusted": true)", untrusted), faultyPhone(R"("mute": "lockdownd")", mute)});
        QElapsedTimer timer;
        timer.start();
        const ToolRun run = phones.run({u"devices"_s});
        QCOMPARE_LT(timer.elapsed(), 6000);
        QVERIFY2(run.isWellFormed(), run.output.constData());
        QMap<QString, QString> names;
        for (const auto device : run.reply["devices"_L1].toArray())
            names.insert(device["id"_L1].toString(),
                         device["name"_L1].toString() + device["ios"_L1].toString());
        const QString sound = u"iPhone Марии17.5.1"_s;
        QCOMPARE(names, (QMap<QString, QString>{{FirstPhone, u"Мой \"iPhone\" 📱17.5.1"_s},
                                                {SecondPhone, sound},
                                                {untrusted, sound},
                                                {mute, u"iPhone"_s}}));
    }

    // Polling every few seconds must never raise the question of trust on the phone; a person's own request
    // does.
    void asksForTrustOnlyWhenToldTo()
    {
        const VirtualPhones phones({phone(R"("paired": false)")});
        QCOMPARE(phones.run({u"devices"_s}).reply["devices"_L1].toArray().size(), 1);
        QVERIFY(!phones.isPaired());
        QCOMPARE(phones.run({u"apps"_s, FirstPhone}).status, 0);
        QVERIFY(phones.isPaired());
    }

    void readsApps_data()
    {
        const Rows<QByteArray, int> row; // the messages' format, how many apps
        row("no app", "xml", 0);
        row("several pages, binary messages", "binary", 250);
        row("without end: not believed", "binary", 20'001);
    }

    void readsApps()
    {
        const auto &[format, count] = Row<QByteArray, int>();
        QByteArray apps = R"({"CFBundleIdentifier": "com.apple.x", "ApplicationType": "System"})";
        for (int i = 0; i < count; ++i)
            apps += QByteArray(kPlayedApp).replace("%1", QByteArray::number(i));
        const VirtualPhones phones({phone("\"apps\": [" + apps + "], \"format\": \"" + format + '"')});
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
            QCOMPARE(version(run.reply, u"app.%1"_s.arg(i)), QString::number(i));
        QCOMPARE(rows.first()["storeID"_L1].toString(), count > 0 ? u"1700000000"_s : QString());
    }

    void readsDetails()
    {
        const VirtualPhones phones({phone(
            R"("capacity": 128e9, "used": 8e9, "values": {"": {"PhoneNumber": "+7 900 555-01-42"}})")});
        const ToolRun info = phones.run({u"info"_s, FirstPhone});
        QVERIFY2(info.status == 0 && info.isWellFormed(), info.output.constData());
        QCOMPARE(values(info.reply),
                 u"Имя=iPhone Марии|Модель=iPhone 13 (iPhone14,5)|Версия iOS=17.5.1 (21F90)|"
                 "Серийный номер=DEMO0000001A|UDID=%1|Память, всего=128,0 ГБ|Память, свободно=120,0 ГБ|"
                 "Часовой пояс=Europe/Moscow|Номер телефона=+7 900 555-01-42"_s.arg(FirstPhone));
        // The program finds among them what it must not show, whatever their labels are.
        KnownSecrets known;
        known.addDetails(ParseDeviceReply(info.reply).details);
        QCOMPARE(RedactSecrets(u"DEMO0000001A 9005550142"_s, known),
                 u"[устройство скрыто] [аккаунт скрыт]"_s);
        const ToolRun battery = phones.run({u"--verbose"_s, u"battery"_s, FirstPhone});
        QVERIFY2(battery.status == 0 && battery.isWellFormed(), battery.output.constData());
        QCOMPARE(values(battery.reply),
                 u"Заряд=82 %|Зарядка=заряжается|Состояние аккумулятора (оценка)=91 %|Циклы перезарядки=312|"
                 "Ёмкость по проекту=3227 мА·ч|Текущая ёмкость=2937 мА·ч|Температура=29,1 °C"_s);
        QVERIFY(!battery.diagnostics.isEmpty());
        for (const char *personal : {"00008DE0", "Марии", "DEMO0000001A"})
            QVERIFY2(!battery.diagnostics.contains(personal), battery.diagnostics.constData());
    }

    void installs_data()
    {
        const Rows<QByteArray, qint64> row; // the phone, bytes of noise in the file
        row("several blocks, the last one odd", R"("tls": true)", kBigPadding + 7);
        row("without encryption", R"("tls": false)", kBigPadding);
    }

    void installs()
    {
        const auto &[changes, padding] = Row<QByteArray, qint64>();
        const VirtualPhones phones({phone(changes + R"(, "appsDirectory": "apps")")});
        // What a run left that was killed in its middle.
        const QDir staging(phones.filePath(u"state/%1/Media/PublicStaging"_s.arg(FirstPhone)));
        QFile left(staging.filePath(u"zarvo-1500000000-1.ipa"_s));
        QVERIFY(staging.mkpath(u"."_s) && left.open(QIODevice::WriteOnly));
        const ToolRun run = phones.run({u"install"_s, FirstPhone, phones.makeIPA(kApp, u"3.5"_s, padding)});
        QVERIFY2(run.status == 0 && run.isWellFormed(), (run.output + run.diagnostics).constData());
        QVERIFY(run.reply["success"_L1].toBool());
        QVERIFY(run.diagnostics.contains("{\"percent\":100,\"stage\":\"upload\"}\n"));
        QVERIFY(run.diagnostics.contains("\"stage\":\"install\"}"));
        QCOMPARE(version(phones.run({u"apps"_s, FirstPhone}).reply, kApp), u"3.5"_s);
        QCOMPARE(phones.staged(), QStringList());
    }

    void tellsFaults_data()
    {
        const Rows<QString, QByteArray, QString> row; // command, fault, sentence
        const QString revoked =
            u"Телефон больше не доверяет этому компьютеру. Переподключите кабель и подтвердите доверие."_s;
        row("locked", u"apps"_s, R"("locked": true)",
            u"Телефон заблокирован. Разблокируйте его и повторите."_s);
        row("not trusted yet", u"apps"_s, R"("untrusted": true)",
            u"Нажмите «Доверять» на экране телефона и введите код-пароль."_s);
        row("trust refused", u"info"_s, R"("refused": true)",
            u"На телефоне выбрано «Не доверять». Переподключите кабель и нажмите «Доверять»."_s);
        row("trust revoked", u"install"_s, R"("revoked": true)", revoked);
        row("the computer's keys are wrong", u"info"_s, R"("wrongKeys": true)", revoked);
        row("lost in the upload", u"install"_s, R"("dropUploadAfter": 3000000)", kNotDone + kLost);
        row("unplugged in the upload", u"install"_s, R"("dropUploadAfter": 3000000, "unplug": true)",
            kNotDone + kLost);
        row("lost in the installation", u"install"_s, R"("dropInstallAt": 40)", kNotDone + kLost);
        row("full", u"install"_s, R"("full": true)", u"На телефоне не хватает места."_s);
        row("signature refused", u"install"_s,
            R"("installError": "ApplicationVerificationFailed", "installErrorDetail": "0xe8008015")",
            u"Нет подходящего профиля: это сборка для разработчиков, не предназначенная для этого телефона."_s);
        row("system too old", u"install"_s, R"("installError": "DeviceOSVersionTooLow")",
            u"Нужна более новая версия iOS."_s);
        row("mute at the first word", u"apps"_s, R"("mute": "lockdownd")", kSilent);
        row("mute at the session", u"info"_s, R"("mute": "session")", kSilent);
        row("mute at the list of apps", u"apps"_s, R"("mute": "installation_proxy")", kSilent);
        row("mute at the battery", u"battery"_s, R"("mute": "diagnostics")", kSilent);
        row("mute at the upload", u"install"_s, R"("mute": "afc")", kSilent);
        row("mute in the middle of the installation", u"install"_s, R"("mute": "install")", kSilent);
    }

    void tellsFaults()
    {
        const auto &[command, fault, sentence] = Row<QString, QByteArray, QString>();
        const VirtualPhones phones({faultyPhone(fault)});
        const bool installs = command == "install"_L1;
        QStringList arguments{command, FirstPhone};
        if (installs)
            arguments.append(phones.makeIPA(kApp, u"3.5"_s, kBigPadding));
        // The shipped limits wait half a minute for a mute phone.
        const ToolRun run = phones.run(arguments, sentence == kSilent ? Limits::Short : Limits::Shipped);
        QVERIFY2(run.status == 1 && run.isWellFormed(), run.output.constData());
        QCOMPARE(run.error(), sentence);
        QCOMPARE(run.reply.contains("success"_L1), installs);
        QVERIFY(!run.reply["success"_L1].toBool());
        const bool isOutOfReach =
            fault.contains("afc") || fault.contains("revoked") || fault.contains("dropUpload");
        QVERIFY(!installs || isOutOfReach || phones.staged().isEmpty()); // what can be reached is cleaned up
    }

    void tellsFaultsOfService_data()
    {
        const Rows<QString, QString, QString> row; // command, service, sentence
        const QString absent =
            u"Служба usbmuxd не запущена. Подключите телефон кабелем; если не поможет, установите пакет usbmuxd."_s;
        const QString silent = u"Служба usbmuxd не отвечает. Отключите и снова подключите телефон."_s;
        row("missing: no phones, no error", u"devices"_s, u"missing"_s, {});
        row("missing: told to who wants a phone", u"apps"_s, u"missing"_s, absent);
        row("its socket is left over: no phones", u"devices"_s, u"dead"_s, {});
        row("its socket is left over: told", u"battery"_s, u"dead"_s, absent);
        row("it answers nobody", u"devices"_s, u"mute"_s, silent);
        row("it answers nobody about a phone", u"info"_s, u"mute"_s, silent);
        row("it is closed to this user", u"devices"_s, u"forbidden"_s,
            u"Нет прав на доступ к службе usbmuxd. Переустановите пакет usbmuxd и перезагрузите компьютер."_s);
        row("the phone is gone", u"info"_s, u"another phone"_s, kLost);
    }

    void tellsFaultsOfService()
    {
        const auto &[command, service, sentence] = Row<QString, QString, QString>();
        VirtualPhones phones({phone()}, service == "mute"_L1);
        if (service == "missing"_L1 || service == "dead"_L1)
            phones.vanish(); // its socket stays
        if (service == "missing"_L1)
            QVERIFY(QFile::remove(phones.filePath(u"socket"_s)));
        if (service == "forbidden"_L1)
            phones.forbid();
        QStringList arguments{command};
        if (command != "devices"_L1)
            arguments.append(service == "another phone"_L1 ? SecondPhone : FirstPhone);
        const ToolRun run = phones.run(arguments, Limits::Short);
        QVERIFY2(run.isWellFormed(), run.output.constData());
        QCOMPARE(run.error(), sentence);
        QCOMPARE(run.reply.contains("devices"_L1), sentence.isEmpty());
    }

    void endsWhenTold_data()
    {
        const Rows<QByteArray, QByteArray> row; // the phone, the tool's word before it is told
        row("during the upload: taken back", R"("uploadRate": 2000000)", R"("stage":"upload")");
        row("during the installation: taken back", R"("statusInterval": 2000)", R"("stage":"install")");
        row("while the phone is mute", R"("faults": {"mute": "afc"})", "start com.apple.afc");
    }

    void endsWhenTold()
    {
        const auto &[changes, sign] = Row<QByteArray, QByteArray>();
        const VirtualPhones phones({phone(changes)});
        const qsizetype staged = changes.contains("mute") ? 0 : 1;
        const QString ipa = phones.makeIPA(kApp, u"3.5"_s, kBigPadding);
        const auto process = phones.start({u"--verbose"_s, u"install"_s, FirstPhone, ipa});
        QVERIFY(waitForWords(*process, sign));
        QVERIFY(staged == 0 || phones.staged().size() == staged);
        QElapsedTimer timer;
        timer.start();
        process->terminate();
        const ToolRun run = finish(*process);
        QCOMPARE_LT(timer.elapsed(), 2000);
        QVERIFY2(run.isWellFormed(), run.output.constData());
        QCOMPARE(run.error(), u"Операция отменена."_s);
        QVERIFY(staged == 0 || phones.staged().isEmpty());
        QCOMPARE(version(phones.run({u"apps"_s, FirstPhone}).reply, kApp), QString());
    }

    void noticesLostPhone_data()
    {
        const Rows<QString, QByteArray, QByteArray> row; // command, where it is mute, the tool's word before
        row("at the session", u"info"_s, "session", "look up the phone: 0");
        row("at the details", u"info"_s, "values", "use the session: 0");
        row("at the list of apps", u"apps"_s, "installation_proxy", "send a command: 0");
        row("at the battery", u"battery"_s, "diagnostics",
            "connect to com.apple.mobile.diagnostics_relay: 0");
    }

    void noticesLostPhone()
    {
        const auto &[command, place, sign] = Row<QString, QByteArray, QByteArray>();
        VirtualPhones phones({faultyPhone("\"mute\": \"" + place + '"')});
        const auto process = phones.start({u"--verbose"_s, command, FirstPhone});
        QVERIFY(waitForWords(*process, sign));
        QTest::qWait(200); // it says so before it waits
        phones.vanish();
        const ToolRun run = finish(*process);
        QVERIFY2(run.isWellFormed(), run.output.constData());
        QCOMPARE(run.error(), kLost);
    }

    // Whoever started it may have stopped reading: a limit of time holds all the same.
    void endsWhenNobodyReads()
    {
        const VirtualPhones phones;
        const QString path = phones.filePath(u"pipe"_s);
        const int pipe = fullPipe(path);
        QVERIFY(pipe >= 0);
        const auto answering = phones.prepare({u"devices"_s}, Limits::Short);
        answering->setStandardOutputFile(path);
        const auto diagnosing = phones.prepare({u"--verbose"_s, u"info"_s, FirstPhone}, Limits::Short);
        diagnosing->setStandardErrorFile(path);
        for (QProcess *process : {answering.get(), diagnosing.get()}) {
            process->start();
            constexpr int patience = 15'000; // ms
            const bool ended = process->waitForFinished(patience);
            process->kill();
            QVERIFY(ended && process->exitStatus() == QProcess::NormalExit);
            QCOMPARE(process->exitCode(), 1);
        }
        ::close(pipe);
        QVERIFY(finish(*diagnosing).output.contains("error"));
        // An answer that is lost is none; where there is nowhere to print, it must not go into another file.
        for (const QString &words : {u"devices >/dev/full"_s, u"--help >/dev/full"_s, u"devices <&- >&-"_s}) {
            const auto process = phones.prepare({});
            process->setArguments({u"-c"_s, u"exec \"$0\" "_s + words, process->program()});
            process->setProgram(u"/bin/sh"_s);
            process->start();
            QCOMPARE(finish(*process).status, 1);
        }
    }
};

QTEST_GUILESS_MAIN(PhoneCommandsTest)

#include "tst_phone_commands.moc"
