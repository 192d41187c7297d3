#include "app/desktop_services.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <thread>
#include <tuple>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatience = 20'000;

} // namespace

// Whatever is called on it is written down; the calls that answer something are answered.
class FakeDesktop : public QDBusVirtualObject
{
    Q_OBJECT

public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &bus) override
    {
        calls.append({message.path(), message.interface() + u'.' + message.member(), message.arguments()});
        const bool isInhibit = message.member() == u"Inhibit";
        bus.send(isInhibit ? message.createReply(QVariant::fromValue(QDBusObjectPath(u"/request/1"_s)))
                           : message.createReply());
        return true;
    }

    QList<std::tuple<QString, QString, QVariantList>> calls; // path, method, arguments
};

class DesktopServicesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void worksWithoutServices();
    void callsTheServices();
    void cleanupTestCase();

private:
    /// Runs the function as the program does, on another thread; this one serves the bus meanwhile.
    static void away(const std::function<void()> &function);

    QTemporaryDir m_folder;
    QProcess m_daemon;
    FakeDesktop m_desktop;
};

void DesktopServicesTest::away(const std::function<void()> &function)
{
    std::atomic<bool> done = false;
    std::thread thread([&] {
        function();
        done = true;
    });
    const bool isDone = QTest::qWaitFor([&] { return done.load(); }, kPatience);
    thread.join();
    QVERIFY(isDone);
}

// A bus without any service that could be started, so that nothing of the machine's own is reached.
void DesktopServicesTest::initTestCase()
{
    QFile configuration(m_folder.filePath(u"bus.conf"_s));
    QVERIFY(configuration.open(QIODevice::WriteOnly));
    configuration.write(
        "<busconfig><type>session</type><listen>unix:path=" + QFile::encodeName(m_folder.path()) +
        "/bus</listen><policy context=\"default\"><allow send_destination=\"*\"/><allow own=\"*\"/>"
        "<allow eavesdrop=\"true\"/></policy></busconfig>");
    configuration.close();
    m_daemon.start(u"dbus-daemon"_s, {u"--nofork"_s, u"--config-file"_s, configuration.fileName()});
    QVERIFY(m_daemon.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_folder.filePath(u"bus"_s)), kPatience);
    const QByteArray address = "unix:path=" + QFile::encodeName(m_folder.filePath(u"bus"_s));
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address);
}

void DesktopServicesTest::worksWithoutServices()
{
    bool shown = true;
    away([&] {
        shown = ShowInFileManager(u"/tmp/a.ipa"_s);
        ShowNotice(u"Zarvo"_s, u"text"_s);
        const StayAwake awake(u"reason"_s);
    });
    QVERIFY(!shown);
}

void DesktopServicesTest::callsTheServices()
{
    QDBusConnection bus = QDBusConnection::connectToBus(
        QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS")), u"fake desktop"_s);
    for (const QString &name : {u"org.freedesktop.FileManager1"_s, u"org.freedesktop.Notifications"_s,
                                u"org.freedesktop.portal.Desktop"_s})
        QVERIFY(bus.registerService(name));
    QVERIFY(bus.registerVirtualObject(u"/"_s, &m_desktop, QDBusConnection::SubPath));

    bool shown = false;
    away([&] {
        shown = ShowInFileManager(u"/папка/a [1]#%.ipa"_s);
        ShowNotice(u"Zarvo"_s, u"Сохранено: 1"_s);
        const StayAwake awake(u"Загрузка"_s);
    });
    QVERIFY(shown);
    QCOMPARE(m_desktop.calls.size(), 4);
    const auto &[path0, show, files] = m_desktop.calls[0];
    QCOMPARE(show, u"org.freedesktop.FileManager1.ShowItems"_s);
    QCOMPARE(files.first().toStringList(),
             QStringList{u"file:///%D0%BF%D0%B0%D0%BF%D0%BA%D0%B0/a%20[1]%23%25.ipa"_s});
    const auto &[path1, notify, notice] = m_desktop.calls[1];
    QCOMPARE(notify, u"org.freedesktop.Notifications.Notify"_s);
    QCOMPARE(notice.value(4).toString(), u"Сохранено: 1"_s);
    const auto &[path2, inhibit, what] = m_desktop.calls[2];
    QCOMPARE(inhibit, u"org.freedesktop.portal.Inhibit.Inhibit"_s);
    QCOMPARE(what.value(1).toUInt(), 4U); // sleep only: neither log-out nor the screen
    const auto &[request, close, none] = m_desktop.calls[3];
    QCOMPARE(request + close, u"/request/1org.freedesktop.portal.Request.Close"_s); // the lock is given back
}

void DesktopServicesTest::cleanupTestCase()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
}

QTEST_GUILESS_MAIN(DesktopServicesTest)
#include "tst_desktop_services.moc"
