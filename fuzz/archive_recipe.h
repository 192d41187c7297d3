// Archives made from text: what a fuzzer changes stays an archive, and mostly an IPA.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <filesystem>

// clang-format off
/// Writes the archive that `recipe` describes. A recipe is read line by line, and no line is wrong; `WORDS`
/// are the bytes behind the letter and a blank.
///
///     f WORDS   a file of this name begins; what follows is about it
///     d WORDS   these bytes are added to what is in it
///     i WORDS   an XML description of the app with this identifier, executable and version (blanks between) is added
///     b WORDS   the same in the binary format
///     z NUMBER  so many bytes (up to 64 KB) are added that cannot be packed
///     m NUMBER  its type and permissions (octal)
///     x NUMBER  its general purpose flags (hexadecimal)
///     s         it is stored, not packed
///     c         its checksum is wrong
///
/// And about the archive as it has come out, in their order:
///
///     @ NUMBER NUMBER  the byte at the first (counted from the end when negative) becomes the second
///     - NUMBER         so many bytes are cut off its end
///     + WORDS          these bytes are appended
///     < WORDS          these bytes are put before it
///
/// A recipe that begins with "PK" is the archive itself. False when the file could not be written.
// clang-format on
bool WriteArchive(const std::filesystem::path &path, QByteArrayView recipe);
