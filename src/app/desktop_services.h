// What the desktop around the program offers, over its message bus. Each function works without it, too. They
// block while the bus answers (seconds, where a service has to be started): any thread but the main one.
#pragma once

#include <QString>

#include <memory>

/// Opens the file manager on the folder of `file` with the file selected. False when no file manager offers
/// that.
bool ShowInFileManager(const QString &file);

/// Shows a desktop notification. Nothing where no notification service runs.
void ShowNotice(const QString &title, const QString &text);

/// While one lives, the machine does not go to sleep by itself, where the desktop or the login manager can be
/// asked for that; the screen may. Ends with the process, however that ends.
class StayAwake
{
public:
    /// `reason` is shown to a user who asks what keeps the machine awake.
    explicit StayAwake(const QString &reason);
    ~StayAwake();
    StayAwake(const StayAwake &) = delete;
    StayAwake &operator=(const StayAwake &) = delete;

private:
    struct Lock;
    std::unique_ptr<Lock> m_lock;
};
