// The keyboard layouts of the desktop.
#pragma once

#include <QString>

#include <functional>
#include <memory>

/// Layouts are told apart by identifiers of the desktop's own. Main thread only.
class InputSource
{
public:
    InputSource() = default;
    InputSource(const InputSource &) = delete;
    InputSource &operator=(const InputSource &) = delete;
    virtual ~InputSource() = default;

    /// The layout in use; empty when the desktop does not say.
    virtual QString current() = 0;
    /// A layout on which English can be typed, out of those that the user has: the one in use when it is for
    /// English itself, else the first for English, else one of another Latin alphabet; empty when there is
    /// none, or when no layout can be chosen here.
    virtual QString english() = 0;
    /// Makes the layout the one in use. Nothing when the user no longer has it.
    virtual void select(const QString &identifier) = 0;

    /// Called when the user or the system has changed the layout in use, or the list of them.
    std::function<void()> changed;

    /// Of the desktop that the application runs on.
    static std::unique_ptr<InputSource> ofThisDesktop();
};
