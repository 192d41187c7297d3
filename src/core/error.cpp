#include "core/error.h"

#include <cerrno>
#include <cstring>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::pair<int, QStringView> kSystemTexts[] = {
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
    {ENFILE, u"Слишком много открытых файлов в системе"},
    {EBUSY, u"Устройство или ресурс занято"},
    {ENODEV, u"Нет такого устройства"},
    {ENXIO, u"Нет такого устройства или адреса"},
    {ELOOP, u"Слишком много уровней символьных ссылок"},
    {EMLINK, u"Слишком много ссылок"},
    {EXDEV, u"Неверная ссылка между устройствами"},
    {ENOTSUP, u"Неподдерживаемая операция"},
    {ESTALE, u"Устаревший дескриптор файла"},
    {ENOTCONN, u"Конечная точка передачи не подсоединена"},
    {EHOSTDOWN, u"Узел выключен"},
    {ETIMEDOUT, u"Время ожидания соединения истекло"},
};

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
