// To which account is the store tool signed in? A plain function, any thread.
#pragma once

#include <QString>

#include <optional>

/// The e-mail in the first JSON object of `output` whose `success` is true (empty when it has none); none
/// when no object confirms the sign-in.
std::optional<QString> ConfirmedAccount(const QString &output);
