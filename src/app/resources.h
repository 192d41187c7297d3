// Where the program's own files lie.
#pragma once

#include <QString>

/// The folder that holds Tools/, AppLogo.png and README.html: lib/zarvo beside the folder of the executable,
/// or the bundle's resources on macOS. Absolute; whether it exists is not checked. Needs the application
/// object.
QString ResourcePath();

/// Makes Qt's own texts (file chooser, context menus) Russian, as the interface is whatever the
/// locale. They stay English where Qt's translations are not installed. Needs the application
/// object; main thread.
void InstallRussianTexts();
