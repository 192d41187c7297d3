// The commands of the menu "Правка". Main thread only.
#pragma once

class QWidget;

enum class EditCommand { Cut, Copy, Paste, SelectAll };

/// Does the command in the view that has the focus, and nothing where it makes no sense there. May be null.
/// The table's row is copied with tabs between its columns.
void RunEditCommand(QWidget *focused, EditCommand command);
