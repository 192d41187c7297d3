#include "app/desktop_services.h"

#include "core/background.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QProcess>
#include <QUrl>
#include <QVariantMap>

#include <chrono>
#include <mutex>
#include <utility>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

// A service may have to be started first.
constexpr auto kPatience = 3s;
// An inhibition that came after this would hold until the program ends.
constexpr auto kInhibitPatience = 25s;
constexpr uint kInhibitSuspend = 4; // of the portal's flags: log out 1, switch users 2, suspend 4, idle 8

struct Method
{
    QString service;
    QString path;
    QString interface;
    QString name;
};

QDBusMessage call(const QDBusConnection &bus, const Method &method, const QVariantList &arguments,
                  std::chrono::milliseconds patience = kPatience)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(method.service, method.path, method.interface, method.name);
    message.setArguments(arguments);
    return bus.call(message, QDBus::Block, static_cast<int>(patience.count()));
}

/// What keeps the machine awake.
struct Inhibition
{
    QString request;                    // of the portal; closing it ends the inhibition
    QDBusUnixFileDescriptor descriptor; // of the login manager; closing it ends the inhibition
};

Inhibition inhibit(const QString &reason)
{
    const Method portal{u"org.freedesktop.portal.Desktop"_s, u"/org/freedesktop/portal/desktop"_s,
                        u"org.freedesktop.portal.Inhibit"_s, u"Inhibit"_s};
    const QDBusReply<QDBusObjectPath> request =
        call(QDBusConnection::sessionBus(), portal,
             {QString(), kInhibitSuspend, QVariantMap{{u"reason"_s, reason}}}, kInhibitPatience);
    if (request.isValid())
        return {request.value().path(), {}};
    const Method manager{u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                         u"org.freedesktop.login1.Manager"_s, u"Inhibit"_s};
    const QDBusReply<QDBusUnixFileDescriptor> descriptor =
        call(QDBusConnection::systemBus(), manager, {u"sleep"_s, u"Zarvo"_s, reason, u"block"_s},
             kInhibitPatience);
    return {{}, descriptor.isValid() ? descriptor.value() : QDBusUnixFileDescriptor()};
}

// Waits for no answer.
void release(const Inhibition &inhibition)
{
    if (!inhibition.request.isEmpty())
        QDBusConnection::sessionBus().send(
            QDBusMessage::createMethodCall(u"org.freedesktop.portal.Desktop"_s, inhibition.request,
                                           u"org.freedesktop.portal.Request"_s, u"Close"_s));
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
    std::mutex mutex;
    bool isWanted = true;
    Inhibition inhibition;
};

StayAwake::StayAwake(const QString &reason, Background &background)
    : m_lock(std::make_shared<Lock>())
{
    background.run([lock = m_lock, reason] {
        const Inhibition answer = inhibit(reason);
        const std::lock_guard guard(lock->mutex);
        if (lock->isWanted)
            lock->inhibition = answer;
        else
            release(answer);
    });
}

StayAwake::~StayAwake()
{
    const std::lock_guard guard(m_lock->mutex);
    m_lock->isWanted = false;
    release(std::exchange(m_lock->inhibition, {}));
}
