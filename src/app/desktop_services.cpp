#include "app/desktop_services.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QProcess>
#include <QUrl>
#include <QVariantMap>

#include <chrono>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

// A service may have to be started first.
constexpr auto kPatience = 3s;
constexpr uint kInhibitSuspend = 4; // of the portal's flags: log out 1, switch users 2, suspend 4, idle 8

struct Method
{
    QString service;
    QString path;
    QString interface;
    QString name;
};

QDBusMessage call(const QDBusConnection &bus, const Method &method, const QVariantList &arguments)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(method.service, method.path, method.interface, method.name);
    message.setArguments(arguments);
    return bus.call(message, QDBus::Block, static_cast<int>(std::chrono::milliseconds(kPatience).count()));
}

} // namespace

bool ShowInFileManager(const QString &file)
{
#ifdef Q_OS_MACOS
    return QProcess::startDetached(u"/usr/bin/open"_s, {u"-R"_s, file});
#else
    const QString address = QString::fromLatin1(QUrl::fromLocalFile(file).toEncoded());
    const Method showItems{u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
                           u"org.freedesktop.FileManager1"_s, u"ShowItems"_s};
    const QDBusMessage reply =
        call(QDBusConnection::sessionBus(), showItems, {QStringList{address}, QString()});
    return reply.type() == QDBusMessage::ReplyMessage;
#endif
}

void ShowNotice(const QString &title, const QString &text)
{
    const Method notify{u"org.freedesktop.Notifications"_s, u"/org/freedesktop/Notifications"_s,
                        u"org.freedesktop.Notifications"_s, u"Notify"_s};
    constexpr uint replacesNone = 0;
    constexpr int usualTime = -1;
    call(QDBusConnection::sessionBus(), notify,
         {u"Zarvo"_s, replacesNone, u"zarvo"_s, title, text, QStringList(),
          QVariantMap{{u"desktop-entry"_s, u"zarvo"_s}}, usualTime});
}

struct StayAwake::Lock
{
    QString request;                    // of the portal; closing it ends the lock
    QDBusUnixFileDescriptor descriptor; // of the login manager; closing it ends the lock
};

StayAwake::StayAwake(const QString &reason)
    : m_lock(std::make_unique<Lock>())
{
    const Method portal{u"org.freedesktop.portal.Desktop"_s, u"/org/freedesktop/portal/desktop"_s,
                        u"org.freedesktop.portal.Inhibit"_s, u"Inhibit"_s};
    const QDBusReply<QDBusObjectPath> request =
        call(QDBusConnection::sessionBus(), portal,
             {QString(), kInhibitSuspend, QVariantMap{{u"reason"_s, reason}}});
    if (request.isValid()) {
        m_lock->request = request.value().path();
        return;
    }
    const Method manager{u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                         u"org.freedesktop.login1.Manager"_s, u"Inhibit"_s};
    const QDBusReply<QDBusUnixFileDescriptor> descriptor =
        call(QDBusConnection::systemBus(), manager, {u"sleep"_s, u"Zarvo"_s, reason, u"block"_s});
    if (descriptor.isValid())
        m_lock->descriptor = descriptor.value();
}

StayAwake::~StayAwake()
{
    if (!m_lock->request.isEmpty())
        call(QDBusConnection::sessionBus(),
             {u"org.freedesktop.portal.Desktop"_s, m_lock->request, u"org.freedesktop.portal.Request"_s,
              u"Close"_s},
             {});
}
