#include "vistrelle/platform/base/visible_text.h"

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/utf8.h"

namespace vistrelle::platform {
namespace {

bool isControl(char32_t code) {
  return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

std::string escaped(const Character& character) {
  switch (character.code) {
    case U'\n':
      return "\\n";
    case U'\r':
      return "\\r";
    case U'\t':
      return "\\t";
    default:
      const auto code = static_cast<std::uint64_t>(character.code);
      return character.length == 1 ? format("\\x{:02x}", code) : format("\\u{:04x}", code);
  }
}

/// A list or dictionary as the system prints it: no line but the bracket's own begins at the margin.
bool isPrintedCollection(std::string_view text) {
  if (!text.starts_with("(\n") && !text.starts_with("{\n")) return false;
  const char closing = text.front() == '(' ? ')' : '}';
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', end + 1)) {
    const std::string_view line = text.substr(end + 1);
    const bool isLast = line.size() == 1 && line.front() == closing;
    if (!line.starts_with("    ") && !isLast) return false;
  }
  return true;
}

}  // namespace

std::string visibleText(std::string_view text) {
  const bool keepsLines = isPrintedCollection(text);
  std::string visible;
  visible.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    const Character character = characterAt(text, offset);
    const bool isHidden = isControl(character.code) || !character.valid;
    if (isHidden && !(keepsLines && character.code == U'\n')) {
      visible += escaped(character);
    } else {
      visible += text.substr(offset, character.length);
    }
    offset += character.length;
  }
  return visible;
}

}  // namespace vistrelle::platform
