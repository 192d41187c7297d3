// The pseudo-terminal on which the store tool asks its questions.
#pragma once

#include "core/error.h"
#include "core/file_descriptor.h"
#include "signin/secret_text.h"

#include <optional>

/// Both sides; neither is inherited by programs started meanwhile, unless given to them.
struct TerminalPair
{
    FileDescriptor master; ///< does not block
    FileDescriptor slave;
};

/// A fresh terminal whose echo is off. Fails with a sentence for the user. Any thread.
std::optional<TerminalPair> OpenSilentTerminal(Error *error = nullptr);

/// Makes sure that the terminal, of which either side is given, echoes nothing. Fails with a sentence for the
/// user. Any thread.
bool SilenceTerminal(int terminal, Error *error = nullptr);

/// Writes the line in one piece; false when the terminal does not take the whole at once.
bool WriteLine(int master, const SecretBytes &line);
