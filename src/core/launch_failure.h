// Why a program could not be started, in words that tell what to do about it.
#pragma once

#include "core/error.h"

/// `path`: absolute, of the program; `errorNumber`: what the system said (an errno value). The sentence names
/// the program and where it was looked for, the user's home folder as "~". Looks at the file system. Any
/// thread.
Error LaunchFailure(const QString &path, int errorNumber);
