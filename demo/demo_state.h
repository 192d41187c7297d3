// What the demonstration remembers between two runs of the tools. The files lie in the folder that
// ZARVO_DEMO_STATE names, else in one that only this user can enter and that goes with the session.
#pragma once

#include <QMap>
#include <QString>

/// The versions that were installed on the phone since it came out of the catalogue, by bundle identifier.
QMap<QString, QString> installedSince(const QString &phone);
/// Remembers one more; false when it could not be written.
bool rememberInstalled(const QString &phone, const QString &app, const QString &version);

/// The account that is signed in to the store; empty: none, as at the beginning.
QString signedInAccount();
/// Remembers it (never a password); false when it could not be written.
bool rememberAccount(const QString &account);
