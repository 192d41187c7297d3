#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "device/install_to_device.h"
#include "views/view_factories.h"

#include <QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

void ZarvoApp::setIPA(const QString &file)
{
    if (!IsIPAFile(file)) { // a name typed into the panel, or an argument
        m_refusal = RefusalOf(file);
        return setStatus(m_refusal);
    }
    if (!std::exchange(m_refusal, {}).isEmpty())
        setStatus(prompt());
    ipa = QFileInfo(file).absoluteFilePath();
    window->showIPA(QFileInfo(file).fileName());
    updateControls();
}

void ZarvoApp::install()
{
    if (busy || auth || hasSheet() || ipa.isEmpty() || selectedPhone.isEmpty())
        return;
    // Taken now: what is installed is what the question names, whatever the window shows by the time of the
    // answer.
    const QString question = InstallQuestion(ipa, window->phoneTitle());
    QDialog *alert = MakeAlert(
        window.get(), u"Установить IPA на выбранный iPhone?"_s, question,
        {{u"Установить"_s, [this, file = ipa, phone = selectedPhone] { installConfirmed(file, phone); }},
         {u"Отмена"_s, {}}});
    alert->show();
}

void ZarvoApp::installConfirmed(const QString &file, const QString &phone)
{
    job(u"Проверка IPA…"_s, [this, file, phone](Job &job, Error *error) {
        const auto apps = installWorker(job, file, phone, error);
        if (!apps)
            return false;
        onMain([this, phone, apps = *apps] { showInstalled(phone, apps); });
        return true;
    });
}

void ZarvoApp::showInstalled(const QString &phone, const QList<AppRow> &list)
{
    // Another phone may have been chosen while the question was open; its list is not this one.
    if (selectedPhone == phone)
        setApps(MakeSearchable(list));
    setStatus(u"Установка подтверждена. Откройте приложение на iPhone: может потребоваться Apple Account "
              "владельца лицензии."_s);
}
