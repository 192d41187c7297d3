#include "app/resources.h"

#include <QCoreApplication>
#include <QDir>

using namespace Qt::StringLiterals;

QString ResourcePath()
{
#ifdef Q_OS_MACOS
    const QString relative = u"../Resources"_s;
#else
    const QString relative = u"../lib/zarvo"_s;
#endif
    return QDir::cleanPath(QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(relative));
}
