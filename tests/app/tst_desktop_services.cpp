#include "app/desktop_services.h"
#include "core/background.h"
#include "support/patience.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// Whatever is called on it is written down; the calls that answer something are answered.
class FakeDesktop : public QDBusVirtualObject
{
    Q_OBJECT

public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &bus) override
    {
        calls.append(message.path() + u' ' + message.interface() + u'.' + message.member());
        arguments.append(message.arguments());
        const bool isInhibit = message.member() == u"Inhibit";
        bus.send(isInhibit ? message.createReply(QVariant::fromValue(QDBusObjectPath(u"/request/1"_s)))
                           : message.createReply());
        return true;
    }

    QStringList calls; // paths and methods
    QList<QVariantList> arguments;
};

class DesktopServicesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A bus without any service that could be started, so that nothing of the machine's own is reached.
    void initTestCase()
    {
        QFile configuration(m_folder.filePath(u"bus.conf"_s));
        QVERIFY(configuration.open(QIODevice::WriteOnly));
        const QByteArray address = "unix:path=" + QFile::encodeName(m_folder.filePath(u"bus"_s));
        configuration.write("<busconfig><type>session</type><listen>" + address +
                            "</listen><policy context=\"default\"><allow send_destination=\"*\"/>"
                            "<allow own=\"*\"/><allow eavesdrop=\"true\"/></policy></busconfig>");
        configuration.close();
        m_daemon.start(u"dbus-daemon"_s,
                       {u"--nofork"_s, u"--print-address"_s, u"--config-file"_s, configuration.fileName()});
        QVERIFY(m_daemon.waitForReadyRead(kPatience)); // it listens
        for (const char *bus : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
            qputenv(bus, address);
    }

    void callsTheServices()
    {
        useServices();
        QVERIFY(!m_isShown); // there are none
        QDBusConnection bus = QDBusConnection::connectToBus(
            QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS")), u"fake desktop"_s);
        for (const char *name : {"FileManager1", "Notifications", "portal.Desktop"})
            QVERIFY(bus.registerService(u"org.freedesktop."_s + QLatin1StringView(name)));
        QVERIFY(bus.registerVirtualObject(u"/"_s, &m_desktop, QDBusConnection::SubPath));
        useServices();
        QVERIFY(m_isShown);
        {
            const StayAwake awake(u"Загрузка"_s, m_background);
            EVENTUALLY(m_background.waitForDone(0ms));
            QVERIFY(m_desktop.calls.last().endsWith(u".Inhibit"));
        }
        EVENTUALLY(m_desktop.calls.last().endsWith(u".Close")); // the lock is given back
        // An answer that nobody has waited for, because this thread gives it, is given back too.
        {
            const StayAwake awake(u"Загрузка"_s, m_background);
        }
        EVENTUALLY_EQUAL(m_desktop.calls.size(), 6);
        QCOMPARE(m_desktop.calls.last(), m_desktop.calls[3]);
        QCOMPARE(m_desktop.calls.first(4),
                 (QStringList{u"/org/freedesktop/FileManager1 org.freedesktop.FileManager1.ShowItems"_s,
                              u"/org/freedesktop/Notifications org.freedesktop.Notifications.Notify"_s,
                              u"/org/freedesktop/portal/desktop org.freedesktop.portal.Inhibit.Inhibit"_s,
                              u"/request/1 org.freedesktop.portal.Request.Close"_s}));
        QCOMPARE(m_desktop.arguments[0].first().toStringList(),
                 QStringList{u"file:///%D0%BF%D0%B0%D0%BF%D0%BA%D0%B0/a%20[1]%23%25.ipa"_s});
        QCOMPARE(m_desktop.arguments[1].value(4).toString(), u"Сохранено: 1"_s);
        QCOMPARE(m_desktop.arguments[2].value(1).toUInt(), 4U); // sleep only: neither log-out nor the screen
    }

    void cleanupTestCase()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

private:
    /// Uses them as the program does, on another thread; this one serves the bus meanwhile.
    void useServices()
    {
        std::atomic<bool> done = false;
        std::thread thread([&] {
            m_isShown = ShowInFileManager(u"/папка/a [1]#%.ipa"_s);
            ShowNotice(u"Zarvo"_s, u"Сохранено: 1"_s);
            done = true;
        });
        const bool isDone = QTest::qWaitFor([&] { return done.load(); }, kPatience);
        thread.join();
        QVERIFY(isDone);
    }

    QTemporaryDir m_folder;
    QProcess m_daemon;
    FakeDesktop m_desktop;
    Background m_background;
    bool m_isShown = true; ///< the file that was asked for last
};

QTEST_GUILESS_MAIN(DesktopServicesTest)
#include "tst_desktop_services.moc"
