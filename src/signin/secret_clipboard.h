// A secret that another program has copied.
#pragma once

#include "signin/secret_text.h"

#include <QClipboard>

/// The text in the clipboard or in the primary selection, with its line breaks; empty when there is none.
/// Main thread only.
///
/// Qt is asked where nothing else can be: it makes copies of what it is given, and pieces of those
/// may stay in memory that it has given back. On X11 the text of another program does not pass through it.
SecretText SecretFromClipboard(QClipboard::Mode mode);

/// The same, straight from the other program that holds it and leaving no copy behind; empty when no program
/// holds a text of at most 64 KiB, or does not give it within a second. X11 only.
SecretText SelectionOfX11(QClipboard::Mode mode);
