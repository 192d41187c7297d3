#include "app/main_window.h"
#include "app/shown_text.h"
#include "app/view_factories.h"
#include "app/zarvo_app.h"
#include "core/main_thread.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>

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
    onMain([this, text] { statusLabel->setText(ShownExplanation(text)); });
}

void ZarvoApp::setTransfer(const QString &text)
{
    onMain([this, text] { transferLabel->setText(OneLine(text)); });
}

void ZarvoApp::job(const QString &text, const JobWork &work)
{
    if (busy || auth || isChoosing()) // its alert would come up over the chooser
        return;
    const bool quiet = std::exchange(quietNextJob, false);
    if (!quiet)
        m_refusal.clear();
    busy = true;
    cancelled = false;
    learnSecrets();
    setStatus(text);
    setTransfer({});
    updateControls();
    const bool started = m_background.run([this, work, quiet] {
        Error error;
        const bool result = work(&error);
        onMain([this, result, error, quiet] { finishJob(result, error, quiet); });
    });
    if (!started)
        finishJob(false, ZarvoError(u"Не удалось начать операцию: системе не хватает ресурсов."_s), quiet);
}

void ZarvoApp::finishJob(bool result, const Error &error, bool quiet)
{
    busy = false;
    activeTask.set(nullptr);
    updateControls();
    if (cancelled) {
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
    cancelled = true;
    activeTask.terminate();
}
