#include "fault.h"

#include "core/bounded_text.h"

#include <QRegularExpression>
#include <QStringView>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/diagnostics_relay.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/property_list_service.h>

#include <array>
#include <span>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestDescription = 500;

constexpr std::array<std::pair<Fault, QStringView>, 15> kSentences{{
    {Fault::ServiceMissing,
     u"Служба usbmuxd не запущена. Подключите телефон кабелем; если не поможет, установите пакет usbmuxd."},
    {Fault::ServiceForbidden,
     u"Нет прав на доступ к службе usbmuxd. Переустановите пакет usbmuxd и перезагрузите компьютер."},
    {Fault::ServiceSilent, u"Служба usbmuxd не отвечает. Отключите и снова подключите телефон."},
    {Fault::NotTrusted, u"Нажмите «Доверять» на экране телефона и введите код-пароль."},
    {Fault::Refused, u"На телефоне выбрано «Не доверять». Переподключите кабель и нажмите «Доверять»."},
    {Fault::Locked, u"Телефон заблокирован. Разблокируйте его и повторите."},
    {Fault::Revoked,
     u"Телефон больше не доверяет этому компьютеру. Переподключите кабель и подтвердите доверие."},
    {Fault::Lost, u"Связь с телефоном прервалась. Проверьте кабель и повторите."},
    {Fault::Silent, u"Телефон не отвечает. Разблокируйте его или переподключите кабель."},
    {Fault::Full, u"На телефоне не хватает места."},
    {Fault::BadReply, u"Телефон прислал непонятный ответ."},
    {Fault::UnreadableFile, u"Не удалось прочитать файл IPA."},
    {Fault::BadFile, u"Файл IPA повреждён или не распознан."},
    {Fault::Cancelled, u"Операция отменена."},
    {Fault::BadCommand, u"Непонятная команда. Список команд: devicezarvo --help."},
}};

struct CodeMeaning
{
    int code;
    Fault fault;
};

constexpr CodeMeaning kLockdownCodes[]{
    {LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING, Fault::NotTrusted},
    {LOCKDOWN_E_USER_DENIED_PAIRING, Fault::Refused},
    {LOCKDOWN_E_PASSWORD_PROTECTED, Fault::Locked},
    {LOCKDOWN_E_INVALID_HOST_ID, Fault::Revoked},
    {LOCKDOWN_E_SSL_ERROR, Fault::Revoked},
    {LOCKDOWN_E_MUX_ERROR, Fault::Lost},
    {LOCKDOWN_E_UNKNOWN_ERROR, Fault::Lost},
    {LOCKDOWN_E_RECEIVE_TIMEOUT, Fault::Silent},
    {LOCKDOWN_E_PLIST_ERROR, Fault::BadReply},
    {LOCKDOWN_E_DICT_ERROR, Fault::BadReply},
};
// A phone that was unplugged before the request is not told apart from one unplugged during it.
constexpr CodeMeaning kDeviceCodes[]{
    {IDEVICE_E_NO_DEVICE, Fault::Lost},       {IDEVICE_E_UNKNOWN_ERROR, Fault::Lost},
    {IDEVICE_E_NOT_ENOUGH_DATA, Fault::Lost}, {IDEVICE_E_SSL_ERROR, Fault::Revoked},
    {IDEVICE_E_TIMEOUT, Fault::Silent},
};
constexpr CodeMeaning kPropertyServiceCodes[]{
    {PROPERTY_LIST_SERVICE_E_PLIST_ERROR, Fault::BadReply},
    {PROPERTY_LIST_SERVICE_E_MUX_ERROR, Fault::Lost},
    {PROPERTY_LIST_SERVICE_E_SSL_ERROR, Fault::Lost},
    {PROPERTY_LIST_SERVICE_E_NOT_ENOUGH_DATA, Fault::Lost},
    {PROPERTY_LIST_SERVICE_E_UNKNOWN_ERROR, Fault::Lost},
    {PROPERTY_LIST_SERVICE_E_RECEIVE_TIMEOUT, Fault::Silent},
};
constexpr CodeMeaning kFileServiceCodes[]{
    {AFC_E_MUX_ERROR, Fault::Lost},
    {AFC_E_NOT_ENOUGH_DATA, Fault::Lost},
    {AFC_E_NO_SPACE_LEFT, Fault::Full},
    {AFC_E_OP_TIMEOUT, Fault::Silent},
    {AFC_E_OP_HEADER_INVALID, Fault::BadReply},
    {AFC_E_UNKNOWN_PACKET_TYPE, Fault::BadReply},
};
constexpr CodeMeaning kDiagnosticsCodes[]{
    {DIAGNOSTICS_RELAY_E_PLIST_ERROR, Fault::BadReply},
    {DIAGNOSTICS_RELAY_E_MUX_ERROR, Fault::Lost},
};

Failure failureIn(std::span<const CodeMeaning> table, int code)
{
    for (const CodeMeaning &meaning : table) {
        if (meaning.code == code)
            return FailureOf(meaning.fault, code);
    }
    return {Fault::Rejected, u"Телефон отказал в запросе (код %1)."_s.arg(code), code};
}

constexpr auto kVerificationFailed = u"ApplicationVerificationFailed";
constexpr std::array<std::pair<quint32, QStringView>, 3> kVerificationTexts{{
    {0xe8008015,
     u"Нет подходящего профиля: это сборка для разработчиков, не предназначенная для этого телефона."},
    {0xe8008018, u"Сертификат подписи приложения больше не действителен."},
    {0xe800801c, u"Приложение не подписано."},
}};

constexpr std::array<std::pair<QStringView, QStringView>, 5> kRefusals{{
    {u"DeviceOSVersionTooLow", u"Нужна более новая версия iOS."},
    {u"DeviceFamilyNotSupported", u"Приложение не для этого устройства."},
    {u"PackageExtractionFailed", u"Файл IPA повреждён или не распознан."},
    {u"PackageInspectionFailed", u"Файл IPA повреждён или не распознан."},
    {u"InstallProhibited", u"Установка запрещена настройками телефона."},
}};

/// Some versions of iOS tell the reason only within the description: "…: 0xe8008015 (…)".
quint32 codeWithin(const QString &description)
{
    static const QRegularExpression pattern(u"0x(e80[0-9a-f]{5})"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern.match(description).captured(1).toUInt(nullptr, 16);
}

QString signatureText(const QString &description, quint32 detail)
{
    const quint32 code = detail != 0 ? detail : codeWithin(description);
    for (const auto &[known, text] : kVerificationTexts) {
        if (known == code)
            return text.toString();
    }
    if (code == 0)
        return u"Телефон отклонил подпись приложения."_s;
    return u"Телефон отклонил подпись приложения (код 0x%1)."_s.arg(code, 8, 16, QChar(u'0'));
}

QString otherRefusal(const QString &error, const QString &description)
{
    const QString text = u"Телефон отказался установить приложение: "_s + error;
    return description.isEmpty() ? text : text + u" — "_s + BoundedText(description, kLongestDescription);
}

QString refusalText(const QString &error, const QString &description, quint32 detail)
{
    if (error == kVerificationFailed)
        return signatureText(description, detail);
    for (const auto &[known, text] : kRefusals) {
        if (known == error)
            return text.toString();
    }
    return otherRefusal(error, description);
}

} // namespace

Failure FailureOf(Fault fault, int code)
{
    for (const auto &[known, text] : kSentences) {
        if (known == fault)
            return {fault, text.toString(), code};
    }
    Q_UNREACHABLE();
}

Failure DeviceFailure(int code)
{
    return failureIn(kDeviceCodes, code);
}

Failure LockdownFailure(int code)
{
    return failureIn(kLockdownCodes, code);
}

Failure PropertyServiceFailure(int code)
{
    return failureIn(kPropertyServiceCodes, code);
}

Failure FileServiceFailure(int code)
{
    return failureIn(kFileServiceCodes, code);
}

Failure DiagnosticsFailure(int code)
{
    return failureIn(kDiagnosticsCodes, code);
}

Failure DuringInstallation(Failure failure)
{
    if (failure.fault == Fault::Lost)
        failure.message.prepend(u"Установка не завершена. "_s);
    return failure;
}

Failure InstallRefusal(const QString &error, const QString &description, quint32 detail)
{
    constexpr auto noSpace = "No space left on device"_L1;
    if (error.contains(noSpace) || description.contains(noSpace))
        return FailureOf(Fault::Full);
    return {Fault::Rejected, refusalText(error, description, detail), 0};
}

bool Fail(Failure *failure, Failure reason)
{
    if (failure)
        *failure = std::move(reason);
    return false;
}
