// Moving a checked IPA to its final name, without ever overwriting a foreign file.
#pragma once

#include "core/error.h"
#include "ipa/ipa_validation.h"

#include <filesystem>

/// Moves `source`, a validated IPA whose identity is `info`, to `destination`. A file that already is there
/// is left alone unless it is an earlier copy of the same app and version, which is replaced in one atomic
/// step. When the same bytes are there already, nothing moves and `source` stays. On success the contents
/// have reached the disk and, unless the disk fails at that very last step, so has the folder's entry. On
/// failure both files are as they were, unless another process took the new one away in the moment in which
/// it had the name. Blocks; any thread.
bool ZarvoPublishIPA(const std::filesystem::path &source, const std::filesystem::path &destination,
                     const IPAInfo &info, Error *error = nullptr);
