// Which controls are enabled, from the window's state alone.
#pragma once

/// What the controls depend on.
struct WindowState
{
    bool busy = false;      ///< a job runs
    bool hasTarget = false; ///< the chosen app is among the installed ones
    bool hasApps = false;   ///< the list of installed apps is not empty
    bool hasIPA = false;    ///< an IPA is chosen for installing
    bool hasPhone = false;  ///< a phone is chosen
};

/// What of the main window can be enabled; Drops are files dropped on it.
enum class Control {
    PhonePicker,
    Information,
    Refresh,
    History,
    ReloadApps,
    Search,
    Table,
    Login,
    CheckAccount,
    StoreID,
    Download,
    DownloadAll,
    ExactVersion,
    Install,
    ChooseIPA,
    Reveal,
    Cancel,
    Instructions,
    Spinner,
    Drops
};

/// True when the control is enabled (for the spinner: turning).
bool IsEnabled(Control control, const WindowState &state);
