#include "usb_bus.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// The word in a file of the system's; empty when there is none.
QString attribute(const QDir &folder, const QString &name)
{
    QFile file(folder.filePath(name));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll().trimmed()) : QString();
}

} // namespace

bool IsPhoneOnBus(const QString &folder)
{
    static const QRegularExpression phone(u"^12[9a][0-9a-f]$"_s);
    const QDir bus(folder);
    const QStringList devices = bus.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(devices.begin(), devices.end(), [&](const QString &device) {
        return attribute(bus, device + u"/idVendor"_s) == u"05ac" &&
               phone.match(attribute(bus, device + u"/idProduct"_s)).hasMatch();
    });
}
