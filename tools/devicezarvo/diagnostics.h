// What the tool tells on standard error: progress for a program, diagnostics for a person. Any thread.
#pragma once

#include <QString>

/// Diagnostics are printed from now on. Off at first.
void EnableDiagnostics();
/// Callable from a signal handler.
bool DiagnosticsEnabled() noexcept;

/// One line with the time since the start. Texts name steps and numbers, never a phone, an app, an account or
/// a file.
void Diagnose(const QString &text);

/// One line of JSON: {"percent":12,"stage":"upload"}. `stage` is "upload" or "install", `percent` 0 to 100.
void ReportProgress(QLatin1StringView stage, int percent);
