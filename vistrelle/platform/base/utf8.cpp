#include "vistrelle/platform/base/utf8.h"

#include <algorithm>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kLongest = 4;

unsigned char byteAt(std::string_view text, std::size_t offset) {
  return static_cast<unsigned char>(text[offset]);
}

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

}  // namespace

// RFC 3629, section 4.
Character detail::multiByteCharacterAt(std::string_view text, std::size_t offset) {
  const unsigned char lead = byteAt(text, offset);
  const Character stray{lead, 1, false};
  std::size_t length = 0;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xBF;
  char32_t code = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    code = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    code = lead & 0x0F;
    if (lead == 0xE0) lowest = 0xA0;
    if (lead == 0xED) highest = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    code = lead & 0x07;
    if (lead == 0xF0) lowest = 0x90;
    if (lead == 0xF4) highest = 0x8F;
  }
  if (length == 0 || text.size() - offset < length) return stray;
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char byte = byteAt(text, offset + i);
    if (byte < lowest || byte > highest) return stray;
    lowest = 0x80;
    highest = 0xBF;
    code = (code << 6) | (byte & 0x3F);
  }
  return {code, length, true};
}

Character characterBefore(std::string_view text, std::size_t end) {
  end = std::min(end, text.size());
  if (end == 0) return {};
  for (std::size_t back = 2; back <= kLongest && back <= end; ++back) {
    if (!isContinuation(byteAt(text, end - back + 1))) break;
    const Character character = characterAt(text, end - back);
    if (character.valid && character.length == back) return character;
  }
  const unsigned char last = byteAt(text, end - 1);
  return {last, 1, last < 0x80};
}

bool isCharacterBoundary(std::string_view text, std::size_t offset) {
  if (offset == 0 || offset >= text.size()) return true;
  if (!isContinuation(byteAt(text, offset))) return true;
  for (std::size_t back = 1; back < kLongest && back <= offset; ++back) {
    if (isContinuation(byteAt(text, offset - back))) continue;
    return characterAt(text, offset - back).length <= back;
  }
  return true;
}

bool isValidUtf8(std::string_view text) {
  for (std::size_t offset = 0; offset < text.size();) {
    const Character character = characterAt(text, offset);
    if (!character.valid) return false;
    offset += character.length;
  }
  return true;
}

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t offset = 0; offset < text.size(); ++count) offset += characterAt(text, offset).length;
  return count;
}

std::size_t offsetOfCharacter(std::string_view text, std::size_t count) {
  std::size_t offset = 0;
  for (; count > 0 && offset < text.size(); --count) offset += characterAt(text, offset).length;
  return offset;
}

void appendCharacter(std::string& text, char32_t code) {
  if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
  const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | (code >> 6));
    put(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    put(0xE0 | (code >> 12));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  } else {
    put(0xF0 | (code >> 18));
    put(0x80 | ((code >> 12) & 0x3F));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  }
}

}  // namespace vistrelle::platform
