#include "device/install_to_device.h"

#include "app/main_window.h"
#include "app/shown_text.h"
#include "app/view_factories.h"
#include "app/zarvo_app.h"
#include "device/device_tool_client.h"

#include <QComboBox>
#include <QFile>
#include <QFileInfo>
#include <QLabel>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr RunTimeout kInstallTimeout{900};

QString refusalOf(const QString &path)
{
    const QFileInfo file(path);
    return (file.exists() ? u"Файл «%1» не является IPA."_s : u"Файл «%1» не найден."_s).arg(file.fileName());
}

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

QString InstallQuestion(const QString &file, const QString &phoneTitle)
{
    // Put together at once: a name that holds "%1" stays what it is.
    return u"%1\n%2\nУстановка может заменить существующую версию. iOS проверит подпись и лицензию."_s.arg(
        ShownName(QFileInfo(file).fileName()), phoneTitle);
}

void ZarvoApp::setIPA(const QString &file)
{
    if (!IsIPAFile(file)) { // a name typed into the panel, or an argument
        m_refusal = refusalOf(file);
        return setStatus(m_refusal);
    }
    m_refusal.clear();
    ipa = QFileInfo(file).absoluteFilePath();
    ipaLabel->setText(ShownName(QFileInfo(file).fileName()));
    updateControls();
}

void ZarvoApp::install()
{
    if (busy || hasSheet() || ipa.isEmpty() || selectedPhone.isEmpty())
        return;
    // Taken now: what is installed is what the question names, whatever the window shows by the time of the
    // answer.
    const QString question = InstallQuestion(ipa, phonePicker->currentText());
    QDialog *alert = MakeAlert(
        window.get(), u"Установить IPA на выбранный iPhone?"_s, question,
        {{u"Установить"_s, [this, file = ipa, phone = selectedPhone] { installConfirmed(file, phone); }},
         {u"Отмена"_s, {}}});
    alert->show();
}

void ZarvoApp::installConfirmed(const QString &file, const QString &phone)
{
    job(u"Проверка IPA…"_s, [this, file, phone](Error *error) {
        const auto info = ZarvoValidateIPA(QFile::encodeName(file).toStdString(), std::nullopt, error);
        if (!info || cancelled)
            return false;
        setStatus(u"Передача IPA и установка на iPhone…"_s);
        const QString path = QFileInfo(file).absoluteFilePath();
        const auto run = command(u"devicezarvo"_s, {u"install"_s, phone, path}, kInstallTimeout, {}, error);
        if (!run || !JudgeInstallRun(*run, error))
            return false;
        const auto reply = device({u"apps"_s, phone}, error);
        if (!reply)
            return false;
        if (!IsInstalled(reply->apps, *info))
            return Fail(error, ZarvoError(u"iOS сообщила об установке, но повторное чтение не подтвердило "
                                          "нужную версию."_s));
        onMain([this, phone, apps = reply->apps] { showInstalled(phone, apps); });
        return true;
    });
}

void ZarvoApp::showInstalled(const QString &phone, const QList<AppRow> &list)
{
    // Another phone may have been chosen while the question was open; its list is not this one.
    if (selectedPhone == phone) {
        setApps(list);
        filterRows();
    }
    setStatus(u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться Apple Account "
              "владельца лицензии."_s);
}
