// What the modes without a window print.
#pragma once

#include <QString>

/// Prints `text` and the end of a line, as UTF-8, and closes standard output. False, with a sentence on
/// standard error, when not all of it could be written. Once in a program; main thread.
bool PrintResult(const QString &text);
