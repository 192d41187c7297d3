// Failures of the program: one Russian sentence each.
#pragma once

#include <QString>

/// What went wrong, in the words that the user reads. Passed as an optional out-parameter: a function that
/// fails writes it, a function that succeeds leaves it untouched, and the pointer may be null.
struct Error
{
    /// What somebody decides by.
    enum class Kind {
        Other,
        TimedOut,     ///< a child was ended because its time had passed
        Mute,         ///< the same, and it had printed nothing
        SignInNeeded, ///< the store wants a new sign-in: it will refuse whatever else it is asked
    };

    QString message;
    QString advice = {}; ///< what to do about it where the message leaves that open; shown beside it only
    Kind kind = Kind::Other;
};

/// An error of the program itself; `message` is the whole text. Any thread.
Error ZarvoError(const QString &message);

/// An error of the operating system: `what` ("Не удалось запустить «ipatool»") followed by the system's own
/// text for `errorNumber` (an errno value). The usual errors are worded in Russian here, in the words of the
/// C library's Russian catalogue, because the interface is Russian whatever the locale; the rest keep
/// strerror's text. Any thread.
Error SystemError(const QString &what, int errorNumber);

/// Writes `error` when the caller asked for it. Returns false, so that a failing function can end with it.
bool Fail(Error *error, const Error &reason);
