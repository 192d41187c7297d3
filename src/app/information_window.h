// The window of a phone's details. Main thread only.
#pragma once

#include <QString>

class QWidget;

/// Opens a window of its own with `text` and brings it to the front; it goes when it is closed, and with
/// `owner`.
QWidget *OpenInformationWindow(QWidget *owner, const QString &text);
