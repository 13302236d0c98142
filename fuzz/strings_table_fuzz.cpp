// Tables of translations, read whole and line by line.

#include <cstdint>
#include <cstdio>

#include "fuzz/support.h"
#include "vistrelle/platform/bundle/strings_table.h"
#include "vistrelle/system/strings_lines.h"
#include "vistrelle/text/pieces.h"

namespace {

/// A text between quotes, every byte that could mean something escaped.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + '"';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  const std::string content(asText(data, size));
  if (const auto table = vistrelle::platform::parseStringsTable(content)) {
    std::string written;
    for (const auto& [key, value] : *table) written += quoted(key) + " = " + quoted(value) + ";\n";
    const auto again = vistrelle::platform::parseStringsTable(written);
    require(again.has_value() && *again == *table);
  }
  const std::vector<std::string> lines = vistrelle::piecesAt(content, '\n');
  const auto keys = vistrelle::keysOfLines(lines);
  require(keys.size() <= lines.size());
  vistrelle::keyOfValue(lines, lines.front());
  vistrelle::keyOfValue(lines, "value");
  return 0;
}
