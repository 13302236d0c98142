#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vistrelle::platform {

using StringsTable = std::map<std::string, std::string, std::less<>>;

/// Reads a table of translations in its text form: statements `"key" = "value";` with C and C++ comments between.
/// Words of letters, digits and "_$/:.-" need no quotes; a key without a value stands for itself; the first of two
/// equal keys counts. Escapes: \n \t \r \a \b \f \v, \Uhhhh (UTF-16 units, pairs joined), up to three octal digits,
/// a line end, and any other character for itself. The file is UTF-8, or UTF-16 of either byte order when it begins
/// with a byte-order mark. Nothing when the text is not such a table.
std::optional<StringsTable> parseStringsTable(std::string_view content);

}  // namespace vistrelle::platform
