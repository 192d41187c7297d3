// The sizes that follow from what is shown in them. Main thread only.
#pragma once

#include <QSize>

class QLayout;
class QLineEdit;
class QMainWindow;
class QWidget;

/// Gives a window that is not shown yet its first size, in the middle of the screen and no larger than that:
/// `usual` (for a font of 13 pixels), or more where the menus, the `content` that can scroll and what stands
/// `below` it need more. `growth` is the height by which their texts may grow.
void FitWindow(QMainWindow *window, QSize usual, const QWidget *content, const QLayout *below, int growth);

/// The width in which the whole of the field's placeholder is seen.
int WidthOfPlaceholder(const QLineEdit *field);
