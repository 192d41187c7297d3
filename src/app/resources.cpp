#include "app/resources.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

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

void InstallRussianTexts()
{
    const QLocale russian(QLocale::Russian, QLocale::Russia);
    QLocale::setDefault(russian);
    auto *translator = new QTranslator(QCoreApplication::instance());
    if (translator->load(russian, u"qtbase"_s, u"_"_s, QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(translator);
}
