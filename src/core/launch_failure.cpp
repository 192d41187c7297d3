#include "core/launch_failure.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

QString withoutHome(const QString &path)
{
    const QString home = QDir::homePath() + u'/';
    return path.startsWith(home) ? u"~/"_s + path.mid(home.size()) : path;
}

// Empty: there is no better sentence than the system's.
QString explanation(const QFileInfo &program, int errorNumber)
{
    switch (errorNumber) {
    case ENOENT:
        if (!program.exists())
            return u"программы нет в папке %1. Установите её, как описано в инструкции Zarvo, и повторите."_s
                .arg(withoutHome(program.path()));
        [[fallthrough]]; // the file is there, but not what is to load it
    case ENOEXEC:
        return u"файл %1 не подходит для этого компьютера. Замените его сборкой для этой системы и этого "
               "процессора."_s.arg(withoutHome(program.filePath()));
    case EACCES:
    case EPERM:
        return u"файл %1 не разрешено выполнять. Разрешите это в свойствах файла и повторите."_s.arg(
            withoutHome(program.filePath()));
    default:
        return {};
    }
}

} // namespace

Error LaunchFailure(const QString &path, int errorNumber)
{
    const QFileInfo program(path);
    const QString what = u"Не удалось запустить «%1»"_s.arg(program.fileName());
    const QString why = explanation(program, errorNumber);
    return why.isEmpty() ? SystemError(what, errorNumber) : ZarvoError(what + u": "_s + why);
}
