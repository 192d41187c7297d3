// Moving and replacing files so that no foreign file is ever lost and no half-written one is ever seen.
#pragma once

#include "core/error.h"
#include "ipa/held_file.h"

#include <filesystem>

/// How a move is kept from overwriting. File systems differ in what they offer; each way falls back on the
/// next one.
enum class MoveWay {
    RenameExclusively, ///< one atomic step
    LinkThenUnlink,    ///< atomic for the new name; for a moment the file has both
    ClaimThenRename,   ///< takes the name with an empty file of its own first, then renames over that
};

/// Moves the ordinary file `source` to `destination` on the same or another volume; never onto something that
/// exists. Across volumes it copies into a private folder beside `destination` and renames from there. Fails
/// with the system's reason; `source` is in its place then. Blocks; any thread.
bool MoveWithoutReplacing(const std::filesystem::path &source, const std::filesystem::path &destination,
                          Error *error = nullptr, MoveWay first = MoveWay::RenameExclusively);

enum class Replacement {
    Done,    ///< `source` has the name `destination`, the old file is gone
    Refused, ///< another file, or a changed one, has the name: it keeps it
    Failed,  ///< the system refused: the old file is as it was, or beside its name ("name (2).ipa") when
             ///< the system refused only to put back a foreign file that came in between
};

enum class ReplaceWay {
    Exchange, ///< swap the two names, look at what came out, swap back when it is not the expected file
    CheckThenRename, ///< look, then rename: the fallback where names cannot be swapped
};

/// Puts `source` in the place of the file `destination` by one atomic step on the same volume, provided that
/// the latter still is the file `expected`, or that nothing has the name any more. Blocks; any thread.
Replacement ReplaceFile(const std::filesystem::path &source, const std::filesystem::path &destination,
                        const FileState &expected, ReplaceWay first = ReplaceWay::Exchange);

/// "Не удалось сохранить «name»" with the system's reason: what MoveWithoutReplacing fails with.
Error SavingFailed(const std::filesystem::path &destination, int errorNumber);
