#pragma once

#include <cstdint>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/text/encoding.h"

#pragma GCC visibility push(default)

/// Small text files and their encodings. A leading "~" in a path is expanded. Every failure is a false or absent
/// result with a log line.
namespace vistrelle {

/// The table of encodings. With a name of the table: its number. Else with a number other than 0: its name, or
/// nothing. Else, without a name, the whole table: a dictionary from the numbers in decimal to the names.
platform::OptionalValue encodingCharsetTable(platform::EncodingNumber number, const platform::OptionalText& name);

/// The display name of the encoding that a file seems to be in, or with `returnText` the text itself. A file whose
/// encoding is not in the table is read as strict ASCII. The order of detection: see platform::detectEncoding.
platform::OptionalText encodingOfTextFile(const platform::OptionalText& path, bool returnText);

/// The text of a file in the given encoding (0: none, nothing is read).
platform::OptionalText convertFromEncoding(const platform::OptionalText& path, platform::EncodingNumber encoding);

/// The beginning of an ASCII file: with a negative count its first -count lines that are not empty (looked for in the
/// first -count x 1024 bytes), else its first `count` bytes. Fewer than 3 bytes become 10; of a file that is shorter
/// than what is asked for, the last byte is left out.
platform::OptionalText readContentsTxtFirst(const platform::OptionalText& path, std::int64_t count);

/// Appends a text in UTF-8 to a file, which is made when it is missing, with a byte-order mark if `withBom`. When not
/// all of it can be written the file is cut back to what it held.
bool ecrit(const platform::OptionalText& path, const platform::OptionalText& text, bool withBom);
bool ecritNoBom(const platform::OptionalText& path, const platform::OptionalText& text);
bool ecritWithBom(const platform::OptionalText& path, const platform::OptionalText& text);

/// Writes a file in the encoding that a word of the name says: "roman", "utf" with "16" (and "be" or "le") or "8",
/// else ASCII; characters that the encoding lacks are replaced. For the UTF encodings an alert tells which one it is.
/// A former file is removed before the new one is written: a full disk or the end of the process in between leaves
/// neither. No byte-order mark is added but the one that plain UTF-16 has.
bool ecritWithEncoding(const platform::OptionalText& path, const platform::OptionalText& text,
                       const platform::OptionalText& name);

/// Replaces a file's content, line ends made uniform ("\n"), in UTF-8. A full disk leaves the old content; the end of
/// the process while the new one is being written leaves part of it.
bool ecritureFichier(const platform::OptionalText& path, const platform::OptionalText& text, std::int64_t number);

/// Puts a text before a file's content. The file is written where it lies: a full disk leaves it as it was; the end of
/// the process while it is being written may leave the beginning new and the rest old.
bool prependToFile(const platform::OptionalText& path, const platform::OptionalText& text);

/// Writes the UTF-8 byte-order mark over the first three bytes of an existing file, meant for one that is still empty.
/// True whenever a path is given.
bool writeUtf8Bom(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
