// To which account is the store tool signed in?
#pragma once

#include "core/job.h"

#include <QString>

#include <optional>

/// Asks the store tool. Returns the account's e-mail, empty when the tool knows none; fails when it confirms
/// no sign-in. The e-mail becomes one of the job's secrets. Blocks, any thread.
std::optional<QString> accountWorker(Job &job, Error *error = nullptr);
