#include "app/control_state.h"

#include "app/main_window.h"
#include "app/spinner.h"
#include "app/zarvo_app.h"

#include <QComboBox>
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
    const auto enables = [&](const QWidget *control) {
        for (const auto &[widget, rule] : special) {
            if (widget == control)
                return IsEnabled(rule, state);
        }
        return IsEnabled(Control::Ordinary, state);
    };
    const QList<QWidget *> all = controls + QList<QWidget *>{table, cancelButton};
    QWidget *focused = window->focusWidget();
    if (focused ? all.contains(focused) && !enables(focused) : busy)
        parkFocus();
    for (QWidget *control : all)
        control->setEnabled(enables(control));
    if (!busy)
        restoreFocus();
    window->setAcceptDrops(IsEnabled(Control::Ordinary, state));
    spinner->setAnimating(IsEnabled(Control::Spinner, state));
}

// A disabled control passes its focus on to the next enabled one, and a window without focus gives it to the
// first one when it is activated. While a job runs that is the cancel button: the next key typed into the
// search field would cancel the job. So the focus waits where keys do no more than scroll.
void ZarvoApp::parkFocus()
{
    QWidget *focused = window->focusWidget();
    if (focused != cancelButton)
        m_focusBeforeJob = focused;
    m_content->setFocus();
}

void ZarvoApp::restoreFocus()
{
    QWidget *next = std::exchange(m_focusBeforeJob, nullptr);
    if (!next || !next->isEnabled())
        next = phonePicker;
    if (window->focusWidget() == m_content)
        next->setFocus();
}
