// What the desktop around the program offers, over its message bus. Everything works without it, too. The
// functions block while the bus answers (seconds, where a service has to be started): any thread but the main
// one.
#pragma once

#include <QString>

#include <memory>

class Background;

/// Opens the file manager on the folder of `file` with the file selected. False when no file manager offers
/// that.
bool ShowInFileManager(const QString &file);

/// Shows a desktop notification. Nothing where no notification service runs.
void ShowNotice(const QString &title, const QString &text);

/// While one lives, the machine does not go to sleep by itself, where the desktop or the login manager can be
/// asked for that; the screen may. Ends with the process, however that ends. Waits for nobody: an answer that
/// comes when the object is gone is given back. Any thread.
class StayAwake
{
public:
    /// `reason` is shown to a user who asks what keeps the machine awake; the bus is asked in the
    /// `background`.
    StayAwake(const QString &reason, Background &background);
    ~StayAwake();
    StayAwake(const StayAwake &) = delete;
    StayAwake &operator=(const StayAwake &) = delete;

private:
    struct Lock;
    std::shared_ptr<Lock> m_lock;
};
