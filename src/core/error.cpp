#include "core/error.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array<std::pair<int, QStringView>, 20> kSystemTexts{{
    {ENOENT, u"Нет такого файла или каталога"},
    {EACCES, u"Отказано в доступе"},
    {EPERM, u"Операция не позволена"},
    {EEXIST, u"Файл существует"},
    {ENOTDIR, u"Это не каталог"},
    {EISDIR, u"Это каталог"},
    {ENOSPC, u"На устройстве не осталось свободного места"},
    {EDQUOT, u"Превышена дисковая квота"},
    {EFBIG, u"Файл слишком велик"},
    {EROFS, u"Файловая система доступна только для чтения"},
    {EIO, u"Ошибка ввода/вывода"},
    {ENAMETOOLONG, u"Слишком длинное имя файла"},
    {EMFILE, u"Слишком много открытых файлов"},
    {ENOMEM, u"Не удалось выделить память"},
    {EAGAIN, u"Ресурс временно недоступен"},
    {ENOEXEC, u"Ошибка формата выполняемого файла"},
    {EINVAL, u"Недопустимый аргумент"},
    {E2BIG, u"Слишком длинный список аргументов"},
    {ECANCELED, u"Операция отменена"},
    {ETXTBSY, u"Текстовый файл занят"},
}};

QString systemText(int number)
{
    for (const auto &[known, text] : kSystemTexts) {
        if (known == number)
            return text.toString();
    }
    return qt_error_string(number);
}

} // namespace

Error ZarvoError(const QString &message)
{
    return Error{message};
}

Error SystemError(const QString &what, int errorNumber)
{
    return Error{u"%1: %2."_s.arg(what, systemText(errorNumber))};
}

bool Fail(Error *error, const Error &reason)
{
    if (error)
        *error = reason;
    return false;
}
