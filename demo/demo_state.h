// Who is signed in to the demonstration's store, between two runs of the tool. The file lies in the folder
// that ZARVO_DEMO_STATE names, else in one that only this user can enter and that goes with the session.
#pragma once

#include <QString>

/// The account that is signed in to the store; empty: none, as at the beginning.
QString signedInAccount();
/// Remembers it (never a password); false when it could not be written.
bool rememberAccount(const QString &account);
