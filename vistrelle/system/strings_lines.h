#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Lines of a strings file, each read by itself: "key" = "value"; comments are not told apart.
namespace vistrelle {

/// The key of the first line whose value is `text`. Values are cut at the line's quotes and equals signs as they
/// come; only when no line matches, those with escaped quotes are read again with the escapes resolved.
std::optional<std::string> keyOfValue(const std::vector<std::string>& lines, std::string_view text);

/// The key of every line that has one: what stands before the first "=" must hold one double quote, which ends the
/// key, or two, which enclose it.
std::vector<std::string> keysOfLines(const std::vector<std::string>& lines);

}  // namespace vistrelle
