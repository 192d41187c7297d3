// The stand-in store's questions to whoever signs in.
#pragma once

#include <QString>

#include <optional>

/// Asks on the terminal for the account, the password and the code, as the store's tool does, and gives the
/// account back. Any account will do, with any password but "wrong" and the code 123456; none of the secrets
/// is kept. On failure `refusal` says why, in the tool's words.
std::optional<QString> holdSignInDialogue(QString &refusal);
