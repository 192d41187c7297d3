#include "core/result_line.h"

#include "core/error.h"

#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;

bool PrintResult(const QString &text)
{
    const bool isWritten = std::puts(text.toUtf8().constData()) >= 0 && std::fflush(stdout) == 0;
    const int number = errno;
    // Some file systems say only now that there is no room.
    const bool isClosed = std::fclose(stdout) == 0;
    if (isWritten && isClosed)
        return true;
    const Error error = SystemError(u"Не удалось вывести результат"_s, isWritten ? errno : number);
    std::fprintf(stderr, "%s\n", error.message.toUtf8().constData());
    return false;
}
