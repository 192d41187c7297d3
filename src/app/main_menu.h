// The main menu. Main thread only.
#pragma once

class QMenuBar;

/// Fills the bar: quitting, and the commands that go to whatever has the focus.
void BuildMainMenu(QMenuBar *bar);
