#include "usbmuxd_service.h"

#include "diagnostics.h"
#include "usb_bus.h"

#include <QByteArray>

#include <libimobiledevice/libimobiledevice.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kDefaultSocket = "/var/run/usbmuxd";
constexpr auto kAddressVariable = "USBMUXD_SOCKET_ADDRESS";

/// The path of the socket that the library will use; empty when it is none of this system.
QByteArray socketPath()
{
    const QByteArray address = qgetenv(kAddressVariable);
    if (address.isEmpty())
        return kDefaultSocket;
    const QByteArray local("UNIX:");
    return address.startsWith(local) ? address.mid(local.size()) : QByteArray();
}

/// A phone on this computer's bus; of the one whose service is asked instead, nothing is known.
bool isPhoneHere()
{
    return qEnvironmentVariableIsEmpty(kAddressVariable) && IsPhoneOnBus(u"/sys/bus/usb/devices"_s);
}

/// 0, or the errno value of connecting.
int connectTo(const QByteArray &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= static_cast<qsizetype>(sizeof address.sun_path))
        return ENAMETOOLONG;
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return errno;
    const int result =
        ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    ::close(socket);
    return result;
}

} // namespace

std::optional<Fault> ServiceFault()
{
    const QByteArray path = socketPath();
    const int problem = path.isEmpty() ? 0 : connectTo(path);
    if (problem != 0)
        Diagnose(u"usbmuxd: %1"_s.arg(QString::fromLocal8Bit(std::strerror(problem))));
    switch (problem) {
    case 0:
        return std::nullopt;
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED: // it has ended and left its socket
        return Fault::ServiceMissing;
    case EACCES:
    case EPERM:
        return Fault::ServiceForbidden;
    default:
        return Fault::ServiceSilent;
    }
}

std::optional<QStringList> ConnectedPhones(Failure *failure)
{
    const auto fault = ServiceFault();
    if (fault == Fault::ServiceMissing && !isPhoneHere())
        return QStringList();
    if (fault) {
        Fail(failure, FailureOf(*fault));
        return std::nullopt;
    }
    idevice_info_t *phones = nullptr;
    int count = 0;
    const int code = idevice_get_device_list_extended(&phones, &count);
    Diagnose(u"usbmuxd: list of phones, code %1, %2 entries"_s.arg(code).arg(count));
    if (code != IDEVICE_E_SUCCESS) {
        Fail(failure, FailureOf(Fault::ServiceSilent, code));
        return std::nullopt;
    }
    QStringList ids;
    for (int i = 0; i < count; ++i) {
        // A phone that is connected by cable and by network is there twice.
        const QString id = QString::fromUtf8(phones[i]->udid);
        if (!id.isEmpty() && !ids.contains(id))
            ids.append(id);
    }
    idevice_device_list_extended_free(phones);
    return ids;
}
