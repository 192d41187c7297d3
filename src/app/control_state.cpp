#include "app/control_state.h"

#include <algorithm>
#include <iterator>

namespace {

using Rule = bool (*)(const WindowState &);

constexpr Rule whileIdle = [](const WindowState &s) { return !s.busy; };
constexpr Rule whileBusy = [](const WindowState &s) { return s.busy; };
constexpr Rule withPhone = [](const WindowState &s) { return !s.busy && s.hasPhone; };

struct Row
{
    Control control;
    Rule enabled;
};

constexpr Row kRows[] = {
    {Control::PhonePicker, whileIdle},
    {Control::Information, withPhone},
    {Control::Refresh, whileIdle},
    {Control::History, whileIdle},
    {Control::ReloadApps, whileIdle},
    {Control::Search, whileIdle},
    {Control::Table, whileIdle},
    {Control::Login, whileIdle},
    {Control::CheckAccount, whileIdle},
    {Control::StoreID, whileIdle},
    {Control::Download, [](const WindowState &s) { return !s.busy && s.hasTarget; }},
    {Control::DownloadAll, [](const WindowState &s) { return !s.busy && s.hasApps; }},
    {Control::ExactVersion, whileIdle},
    {Control::Install, [](const WindowState &s) { return !s.busy && s.hasIPA && s.hasPhone; }},
    {Control::ChooseIPA, whileIdle},
    {Control::Reveal, whileIdle},
    {Control::Cancel, whileBusy},
    {Control::Instructions, whileIdle},
    {Control::Spinner, whileBusy},
    {Control::Drops, whileIdle},
};

} // namespace

bool IsEnabled(Control control, const WindowState &state)
{
    const auto row = std::find_if(std::begin(kRows), std::end(kRows),
                                  [control](const Row &candidate) { return candidate.control == control; });
    return row != std::end(kRows) && row->enabled(state);
}
