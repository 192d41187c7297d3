// The windows beside the main one. Main thread only.
#pragma once

#include <QString>
#include <QWidget>

/// An empty window of its own, hidden, owned by `owner`; Escape and the desktop's keys for closing close it.
/// `size` is given for a font of 13 pixels.
QWidget *MakeSecondWindow(QWidget *owner, const QString &title, QSize size);

/// Centres the window on its screen and brings it to the front with the keyboard focus.
void PresentWindow(QWidget *window);

/// Which of the window's buttons, counted in Tab order, has the focus; -1 for none. For a window whose
/// buttons are made anew: FocusButton then gives the focus to the one in the same place, or to the last one.
int FocusedButton(const QWidget *window);
void FocusButton(QWidget *window, int index);
