#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// UTF-8 as characters. A character is a Unicode code point; a byte that is part of no valid sequence (RFC 3629: no
/// surrogates, no overlong forms, nothing above U+10FFFF) counts as one character of its own, so that every text can
/// be walked, cut and put together again without a loss.
namespace vistrelle::platform {

struct Character {
  char32_t code = 0;       ///< the code point; for a stray byte the byte's value
  std::size_t length = 0;  ///< in bytes, 1 to 4; 0 at the end of the text
  bool valid = false;      ///< false for a stray byte
};

namespace detail {
Character multiByteCharacterAt(std::string_view text, std::size_t offset);
}  // namespace detail

/// The character that begins at `offset`, which must be a boundary.
inline Character characterAt(std::string_view text, std::size_t offset) {
  if (offset >= text.size()) return {};
  const auto byte = static_cast<unsigned char>(text[offset]);
  if (byte < 0x80) return {byte, 1, true};
  return detail::multiByteCharacterAt(text, offset);
}

/// The character that ends at `end`, which must be a boundary; length 0 at the start.
Character characterBefore(std::string_view text, std::size_t end);

/// Whether a cut at `offset` splits no character. The two ends are boundaries.
bool isCharacterBoundary(std::string_view text, std::size_t offset);

bool isValidUtf8(std::string_view text);

std::size_t characterCount(std::string_view text);

/// The offset in bytes where the character number `count` begins; the text's size when it has no more than that.
std::size_t offsetOfCharacter(std::string_view text, std::size_t count);

/// The first `count` characters, the whole text when it is shorter.
inline std::string_view prefixOfCharacters(std::string_view text, std::size_t count) {
  return text.substr(0, offsetOfCharacter(text, count));
}

/// Appends the character as UTF-8; a surrogate or a number above U+10FFFF appends U+FFFD.
void appendCharacter(std::string& text, char32_t code);

}  // namespace vistrelle::platform
