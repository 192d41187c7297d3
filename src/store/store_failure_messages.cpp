#include "store/store_failure_messages.h"

#include "store/diagnostic_redaction.h"

#include <QStringView>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t maximumFragments = 5;

/// What to do when the tool's reason holds one of the fragments (lower case; unused ones are empty).
struct Advice
{
    std::array<QStringView, maximumFragments> fragments;
    QStringView text;
    Error::Kind kind = Error::Kind::Other;

    bool isFor(const QString &reason) const
    {
        return std::any_of(fragments.begin(), fragments.end(), [&reason](QStringView fragment) {
            return !fragment.isEmpty() && reason.contains(fragment);
        });
    }
};

/// The first row that fits is taken: what the user can do something about goes before what may pass by
/// itself.
constexpr std::array advices{
    Advice{{u"license is required"},
           u"Apple требует лицензию этого аккаунта. Войдите в Apple Account, которым первоначально получали "
           u"приложение."},
    Advice{
        {u"app not found", u"application not found", u"not available"},
        u"Apple не предоставила приложение. Оно может быть удалено или недоступно этому аккаунту. Попробуйте "
        u"числовой App Store ID из данных iPhone."},
    Advice{{u"sigill", u"illegal instruction", u"panic:"},
           u"Модуль загрузки аварийно завершился. Повторите попытку."},
    Advice{{u"file locked", u"operation not permitted"},
           u"Локальное хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."},
    Advice{{u"keychain", u"credential", u"authentication", u"failed to get account", u"password"},
           u"Нужен вход в Apple Account или доступ к Связке ключей. Нажмите «Войти» и завершите вход в форме "
           u"приложения.",
           Error::Kind::SignInNeeded},
    Advice{{u"timed out", u"timeout", u"deadline exceeded"},
           u"Не удалось дождаться ответа сервиса загрузки. Повторите попытку."},
    Advice{{u"x509", u"tls handshake", u"certificate"},
           u"Не удалось установить защищённое соединение с сервисом загрузки. Проверьте дату и время Mac и "
           u"сетевое "
           u"подключение."},
    Advice{{u"429"}, u"Сервис ограничил частоту запросов. Повторите позже."},
};

constexpr Advice generalAdvice{{}, u"Загрузку выполнить не удалось."};

const Advice &adviceFor(const QString &diagnostic)
{
    const QString reason = diagnostic.toLower();
    const auto advice = std::find_if(advices.begin(), advices.end(),
                                     [&reason](const Advice &row) { return row.isFor(reason); });
    return advice == advices.end() ? generalAdvice : *advice;
}

// What a tool says that is not, or not yet, the one that this program is made for.
constexpr std::array<QStringView, 4> foreignTool{u"unknown command", u"unknown flag", u"unknown shorthand",
                                                 u"required flag"};

} // namespace

QString ZarvoStoreFailure(const ToolResult &result, const KnownSecrets &known)
{
    return StoreRunError(result.code, ZarvoSafeStoreDiagnostic(result, known)).message;
}

Error StoreRunError(int code, const QString &diagnostic)
{
    const QString reason =
        diagnostic.isEmpty() ? u"Модуль не передал описание ошибки."_s : u"Причина: "_s + diagnostic;
    const Advice &advice = adviceFor(diagnostic);
    return {advice.text.toString() + u"\n\nКод модуля: "_s + QString::number(code) + u". "_s + reason,
            ForeignToolAdvice(diagnostic), advice.kind};
}

QString ForeignToolAdvice(const QString &said)
{
    const QString text = said.toLower();
    const bool isForeign = std::any_of(foreignTool.begin(), foreignTool.end(),
                                       [&](QStringView words) { return text.contains(words); });
    return isForeign ? u"Эта версия ipatool не подходит: она не знает того, что ей поручено. Замените её "
                       u"более новой, как "
                       "описано в инструкции."_s
                     : QString();
}

QString MuteToolAdvice()
{
    return u"Если так каждый раз, возможно, эта ipatool ждёт того, чего Zarvo ей не скажет. Замените её "
           u"подходящей, "
           "как описано в инструкции."_s;
}
