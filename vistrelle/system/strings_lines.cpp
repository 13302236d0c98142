#include "vistrelle/system/strings_lines.h"

#include <algorithm>
#include <cstddef>

namespace vistrelle {
namespace {

struct Entry {
  std::string_view key;
  std::string_view value;
};

/// What follows the first `mark`, up to the second or the end; nothing without a mark.
std::optional<std::string_view> betweenMarks(std::string_view text, char mark) {
  const std::size_t first = text.find(mark);
  if (first == std::string_view::npos) return std::nullopt;
  const std::string_view rest = text.substr(first + 1);
  return rest.substr(0, rest.find(mark));
}

std::optional<Entry> entryOf(std::string_view line) {
  const auto key = betweenMarks(line, '"');
  const auto right = betweenMarks(line, '=');
  if (!key || !right) return std::nullopt;
  return Entry{*key, betweenMarks(*right, '"').value_or(*right)};
}

/// A quoted text from `offset`, which stands at its opening quote, with \" and \\ resolved; `offset` moves behind it.
std::optional<std::string> escapedText(std::string_view line, std::size_t& offset) {
  std::string text;
  for (++offset; offset < line.size(); ++offset) {
    if (line[offset] == '"') {
      ++offset;
      return text;
    }
    const bool escape =
        line[offset] == '\\' && offset + 1 < line.size() && (line[offset + 1] == '"' || line[offset + 1] == '\\');
    if (escape) ++offset;
    text += line[offset];
  }
  return std::nullopt;
}

/// The key of a line of the form "key" = "value" with escapes, when its value is `text`.
std::optional<std::string> escapedKey(std::string_view line, std::string_view text) {
  std::size_t offset = line.find('"');
  if (offset == std::string_view::npos) return std::nullopt;
  const auto key = escapedText(line, offset);
  if (!key) return std::nullopt;
  offset = line.find('"', offset);
  if (offset == std::string_view::npos || line.substr(0, offset).find('=') == std::string_view::npos)
    return std::nullopt;
  const auto value = escapedText(line, offset);
  if (!value || *value != text) return std::nullopt;
  return key;
}

}  // namespace

std::optional<std::string> keyOfValue(const std::vector<std::string>& lines, std::string_view text) {
  for (const std::string& line : lines) {
    const auto entry = entryOf(line);
    if (entry && entry->value == text) return std::string(entry->key);
  }
  for (const std::string& line : lines) {
    if (line.find("\\\"") == std::string::npos) continue;
    if (auto key = escapedKey(line, text)) return key;
  }
  return std::nullopt;
}

std::vector<std::string> keysOfLines(const std::vector<std::string>& lines) {
  std::vector<std::string> keys;
  for (const std::string& line : lines) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string_view left = std::string_view(line).substr(0, equals);
    const auto quotes = std::count(left.begin(), left.end(), '"');
    // One quote makes two pieces, of which the first is the key; two quotes make three, and the key is the second.
    if (quotes == 1) keys.emplace_back(left.substr(0, left.find('"')));
    if (quotes == 2) keys.emplace_back(*betweenMarks(left, '"'));
  }
  return keys;
}

}  // namespace vistrelle
