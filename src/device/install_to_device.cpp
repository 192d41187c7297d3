#include "device/install_to_device.h"

#include "core/shown_text.h"
#include "device/device_tool_client.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kInstallTimeout{900};

} // namespace

bool JudgeInstallRun(const ToolResult &result, Error *error)
{
    const std::optional<DeviceReply> reply = LastDeviceReply(result);
    if (result.code == 0 && reply && reply->success)
        return true;
    const QString reason = reply ? reply->error.value_or(QString()) : QString();
    return Fail(error, ZarvoError(!reason.isEmpty() ? reason : u"iOS не подтвердила установку."_s));
}

bool IsInstalled(const QList<AppRow> &apps, const IPAInfo &info)
{
    return std::any_of(apps.begin(), apps.end(),
                       [&](const AppRow &app) { return app.id == info.id && app.version == info.version; });
}

bool IsIPAFile(const QString &path)
{
    const QFileInfo file(path);
    return file.isFile() && file.suffix().compare("ipa"_L1, Qt::CaseInsensitive) == 0;
}

QString RefusalOf(const QString &path)
{
    const QFileInfo file(path);
    return (file.exists() ? u"Файл «%1» не является IPA."_s : u"Файл «%1» не найден."_s)
        .arg(ShownName(file.fileName()));
}

QString InstallQuestion(const QString &file, const QString &phoneTitle)
{
    // Put together at once: a name that holds "%1" stays what it is.
    return u"%1\n%2\nУстановка может заменить существующую версию. iOS проверит подпись и лицензию."_s.arg(
        ShownName(QFileInfo(file).fileName()), phoneTitle);
}

std::optional<QList<AppRow>> installWorker(Job &job, const QString &file, const QString &phone, Error *error)
{
    const auto info = ZarvoValidateIPA(QFile::encodeName(file).toStdString(), std::nullopt, error);
    if (!info || job.isCancelled())
        return std::nullopt;
    job.setStatus(u"Передача IPA и установка на iPhone…"_s);
    const QString path = QFileInfo(file).absoluteFilePath();
    const auto run = job.command(u"devicezarvo"_s, {u"install"_s, phone, path}, kInstallTimeout, {}, error);
    if (!run || !JudgeInstallRun(*run, error))
        return std::nullopt;
    const auto reply = device(job, {u"apps"_s, phone}, error);
    if (!reply)
        return std::nullopt;
    if (!IsInstalled(reply->apps, *info)) {
        Fail(error,
             ZarvoError(u"iOS сообщила об установке, но повторное чтение не подтвердило нужную версию."_s));
        return std::nullopt;
    }
    return reply->apps;
}
