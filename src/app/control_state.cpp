#include "app/control_state.h"

#include "app/main_window.h"
#include "app/spinner.h"
#include "app/zarvo_app.h"

#include <QPushButton>
#include <QTableView>

#include <utility>

namespace {

struct Row
{
    Control control;
    bool (*enabled)(const WindowState &);
};

constexpr Row kRows[] = {
    {Control::Ordinary, [](const WindowState &s) { return !s.busy; }},
    {Control::Download, [](const WindowState &s) { return !s.busy && s.hasTarget; }},
    {Control::DownloadAll, [](const WindowState &s) { return !s.busy && s.hasApps; }},
    {Control::Install, [](const WindowState &s) { return !s.busy && s.hasIPA && s.hasPhone; }},
    {Control::Information, [](const WindowState &s) { return !s.busy && s.hasPhone; }},
    {Control::Cancel, [](const WindowState &s) { return s.busy; }},
    {Control::Table, [](const WindowState &s) { return !s.busy; }},
    {Control::Spinner, [](const WindowState &s) { return s.busy; }},
};

} // namespace

bool IsEnabled(Control control, const WindowState &state)
{
    for (const Row &row : kRows) {
        if (row.control == control)
            return row.enabled(state);
    }
    return false;
}

std::optional<AppRow> ZarvoApp::target() const
{
    return FindApp(apps, selectedApp);
}

void ZarvoApp::updateControls()
{
    const WindowState state{busy, target().has_value(), !apps.isEmpty(), !ipa.isEmpty(),
                            !selectedPhone.isEmpty()};
    const std::pair<QWidget *, Control> special[] = {
        {downloadButton, Control::Download}, {allButton, Control::DownloadAll},
        {installButton, Control::Install},   {infoButton, Control::Information},
        {cancelButton, Control::Cancel},     {table, Control::Table},
    };
    const auto ruleOf = [&](const QWidget *control) {
        for (const auto &[widget, rule] : special) {
            if (widget == control)
                return rule;
        }
        return Control::Ordinary;
    };
    keepFocus(busy);
    for (QWidget *control : std::as_const(controls))
        control->setEnabled(IsEnabled(ruleOf(control), state));
    table->setEnabled(IsEnabled(Control::Table, state));
    restoreFocus(busy); // before the cancel button hands the focus that it may have to its neighbour
    cancelButton->setEnabled(IsEnabled(Control::Cancel, state));
    spinner->setAnimating(IsEnabled(Control::Spinner, state));
}

// A disabled control passes its focus on to the next enabled one, which is the cancel button: the next key
// typed into the search field would cancel the job. So the focus is put aside while a job runs.
void ZarvoApp::keepFocus(bool disabling)
{
    QWidget *focused = disabling ? window->focusWidget() : nullptr;
    if (!focused || focused == cancelButton || !(controls.contains(focused) || focused == table))
        return;
    m_focusBeforeJob = focused;
    focused->clearFocus();
}

void ZarvoApp::restoreFocus(bool disabling)
{
    if (disabling || !m_focusBeforeJob)
        return;
    QWidget *former = std::exchange(m_focusBeforeJob, nullptr);
    const QWidget *focused = window->focusWidget();
    if (former->isEnabled() && (!focused || focused == cancelButton))
        former->setFocus();
}
