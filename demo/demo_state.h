// What the demonstration's phones remember between two runs of the tools.
#pragma once

#include <QMap>
#include <QString>

/// The versions that were installed on the phone since it came out of the catalogue, by bundle identifier.
QMap<QString, QString> installedSince(const QString &phone);

/// Remembers one more; false when it could not be written. The file lies in the folder that ZARVO_DEMO_STATE
/// names, else in one that only this user can enter and that goes with the session.
bool rememberInstalled(const QString &phone, const QString &app, const QString &version);
