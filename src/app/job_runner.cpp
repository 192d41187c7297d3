#include "app/apps_table_model.h"
#include "app/main_window.h"
#include "app/zarvo_app.h"
#include "core/main_thread.h"
#include "core/shown_text.h"
#include "views/view_factories.h"

#include <QClipboard>
#include <QDir>
#include <QGuiApplication>

#include <utility>

using namespace Qt::StringLiterals;

void ZarvoApp::onMain(std::function<void()> block)
{
    ZarvoMain([alive = std::weak_ptr(m_alive), block = std::move(block)] {
        if (!alive.expired())
            block();
    });
}

void ZarvoApp::setStatus(const QString &text)
{
    onMain([this, text] { window->showStatus(text); });
}

void ZarvoApp::setTransfer(const QString &text)
{
    onMain([this, text] { window->showTransfer(text); });
}

void ZarvoApp::updateControls()
{
    window->showControls({busy, target().has_value(), !window->apps()->apps().isEmpty(), !ipa.isEmpty(),
                          !selectedPhone.isEmpty()});
}

// What the program has met of the user's secrets must not be shown by a message of the next piece of work.
void ZarvoApp::learnSecrets()
{
    m_known->addHomeFolder(QDir::homePath());
    m_known->addHomeFolder(QDir(QDir::homePath()).canonicalPath());
    m_known->addAccount(account);
    m_known->addAccount(typedAccount);
    for (const AppRow &app : window->apps()->apps())
        m_known->addAccount(app.licenseAccount);
    for (const PhoneEntry &phone : phones + savedPhones) {
        m_known->addPhoneIdentifier(phone.id);
        m_known->addPhoneName(phone.name);
    }
    m_known->addDetails(details);
}

std::shared_ptr<Job> ZarvoApp::makeJob()
{
    learnSecrets();
    const Job::Listeners listeners{[this](const QString &text) { setStatus(text); },
                                   [this](const QString &text) { setTransfer(text); }};
    return std::make_shared<Job>(m_resourcePath, listeners, m_known);
}

void ZarvoApp::job(const QString &text, const JobWork &work)
{
    if (busy || auth || isChoosing()) // its alert would come up over the chooser
        return;
    const bool quiet = std::exchange(quietNextJob, false);
    if (!quiet)
        m_refusal.clear();
    busy = true;
    m_job = makeJob();
    setStatus(text);
    setTransfer({});
    updateControls();
    const bool started = m_background.run([this, job = m_job, work, quiet] {
        Error error;
        const bool result = work(*job, &error);
        onMain([this, result, error, quiet] { finishJob(result, error, quiet); });
    });
    if (!started)
        finishJob(false, ZarvoError(u"Не удалось начать операцию: системе не хватает ресурсов."_s), quiet);
}

void ZarvoApp::finishJob(bool result, const Error &error, bool quiet)
{
    busy = false;
    updateControls();
    if (m_job->isCancelled()) {
        setStatus(u"Операция отменена."_s);
    } else if (!result && !error.message.isEmpty()) {
        setTransfer({});
        setStatus(quiet ? prompt() : error.message);
        if (!quiet)
            showFailure(error);
    }
    // The poll of the start-up finds the first check running and is dropped: a phone that is there would stay
    // unseen until the timer's first tick.
    if (quiet)
        pollDevice(false);
}

void ZarvoApp::showFailure(const Error &error)
{
    const auto copy = [text = error.message] { QGuiApplication::clipboard()->setText(text); };
    QWidget *alert = MakeAlert(window.get(), u"Операция не выполнена"_s, ShownExplanation(error.message),
                               {{u"Понятно"_s, {}}, {u"Скопировать ошибку"_s, copy}}, error.advice);
    alert->show();
}

void ZarvoApp::cancelJob()
{
    if (m_job)
        m_job->cancel();
}
