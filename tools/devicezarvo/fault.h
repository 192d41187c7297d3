// What can go wrong between this computer and a phone, and what the user is told. Plain functions, any
// thread.
#pragma once

#include <QString>

enum class Fault {
    ServiceMissing,   ///< usbmuxd does not run
    ServiceForbidden, ///< it runs, and is closed to this user
    ServiceSilent,    ///< it runs, and does not answer sensibly
    NotTrusted,       ///< the phone does not know this computer yet
    Refused,          ///< its owner said no
    Locked,
    Revoked, ///< the phone no longer knows this computer
    Lost,    ///< the connection broke
    Silent,  ///< the phone does not answer in time
    Full,    ///< no room on the phone
    BadReply,
    UnreadableFile, ///< the IPA cannot be read
    BadFile,        ///< it can be read, and is no IPA
    Cancelled,
    BadCommand, ///< the command line makes no sense
    Rejected,   ///< the phone said no, in a way that has its own sentence
};

/// A failure on its way to the user. As an out-parameter it is written on every failure, untouched on success
/// and may be null.
struct Failure
{
    Fault fault = Fault::BadReply;
    QString message; ///< one Russian sentence or two
    int code = 0;    ///< the library's number, for diagnostics; 0: none
};

/// The failure with the sentence that belongs to the fault.
Failure FailureOf(Fault fault, int code = 0);

/// Failures by the library's error numbers; `code` is not 0 (success).
Failure DeviceFailure(int code);          ///< idevice_error_t
Failure LockdownFailure(int code);        ///< lockdownd_error_t
Failure PropertyServiceFailure(int code); ///< property_list_service_error_t
Failure FileServiceFailure(int code);     ///< afc_error_t
Failure DiagnosticsFailure(int code);     ///< diagnostics_relay_error_t

/// The same failure as an interrupted installation tells it: a lost connection says first that the app is not
/// installed.
Failure DuringInstallation(Failure failure);

/// A refusal to install, from what the phone says of it: `Error`, `ErrorDescription` and `ErrorDetail` (its
/// lower 32 bits; 0: not given).
Failure InstallRefusal(const QString &error, const QString &description, quint32 detail);

/// Writes `failure` when the caller asked for it. Returns false, so that a failing function can end with it.
bool Fail(Failure *failure, Failure reason);
