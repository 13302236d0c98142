#include "vistrelle/platform/text/unicode.h"

#include <unicode/ucasemap.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cstdint>

namespace vistrelle::platform {
namespace {

/// The mappings of the root locale. Never destroyed: threads may still compare texts while the process ends.
const UCaseMap* rootCaseMap() {
  static const UCaseMap* const map = [] {
    UErrorCode error = U_ZERO_ERROR;
    return ucasemap_open("", U_FOLD_CASE_DEFAULT, &error);
  }();
  return map;
}

using Mapping = decltype(&ucasemap_utf8ToLower);

bool isAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/// Appends the mapping of a run of valid UTF-8. The library counts in 32 bits, so that a long run goes in pieces; a
/// piece that cannot be mapped is kept.
void appendMapped(std::string& result, std::string_view run, Mapping mapping) {
  constexpr std::size_t kPiece = std::size_t{1} << 26;
  while (!run.empty()) {
    std::size_t length = std::min(run.size(), kPiece);
    while (!isCharacterBoundary(run, length)) --length;
    const std::string_view piece = run.substr(0, length);
    run.remove_prefix(length);
    const std::size_t start = result.size();
    result.resize(start + length + 16);
    for (int attempt = 0; attempt < 2; ++attempt) {
      UErrorCode error = U_ZERO_ERROR;
      const std::int32_t needed =
          mapping(rootCaseMap(), result.data() + start, static_cast<std::int32_t>(result.size() - start), piece.data(),
                  static_cast<std::int32_t>(length), &error);
      if (error == U_BUFFER_OVERFLOW_ERROR && attempt == 0) {
        result.resize(start + static_cast<std::size_t>(needed));
        continue;
      }
      result.resize(start + (U_FAILURE(error) ? 0 : static_cast<std::size_t>(needed)));
      if (U_FAILURE(error)) result.append(piece);
      break;
    }
  }
}

std::string mapped(std::string_view text, Mapping mapping) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    std::size_t end = offset;
    Character next = characterAt(text, end);
    while (next.valid) {
      end += next.length;
      next = characterAt(text, end);
    }
    appendMapped(result, text.substr(offset, end - offset), mapping);
    if (end < text.size()) result.push_back(text[end++]);
    offset = end;
  }
  return result;
}

char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char asciiUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

template <typename AsciiMapping>
std::string mapped(std::string_view text, AsciiMapping ascii, Mapping mapping) {
  if (!isAscii(text)) return mapped(text, mapping);
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), ascii);
  return result;
}

}  // namespace

std::string lowercased(std::string_view text) {
  return mapped(text, asciiLower, &ucasemap_utf8ToLower);
}
std::string uppercased(std::string_view text) {
  return mapped(text, asciiUpper, &ucasemap_utf8ToUpper);
}
std::string caseFolded(std::string_view text) {
  return mapped(text, asciiLower, &ucasemap_utf8FoldCase);
}

std::string invertedCase(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    const Character character = characterAt(text, offset);
    const std::string_view piece = text.substr(offset, character.length);
    offset += character.length;
    const auto code = static_cast<UChar32>(character.code);
    if (character.valid && u_isUUppercase(code)) {
      result += lowercased(piece);
    } else if (character.valid && u_isULowercase(code)) {
      result += uppercased(piece);
    } else {
      result += piece;
    }
  }
  return result;
}

bool equalsIgnoringCase(std::string_view first, std::string_view second) {
  return caseFolded(first) == caseFolded(second);
}

int compareIgnoringCase(std::string_view first, std::string_view second) {
  // The order of UTF-8 bytes is the order of code points.
  const int folded = caseFolded(first).compare(caseFolded(second));
  return folded != 0 ? folded : first.compare(second);
}

bool isLetter(char32_t code) {
  if (code < 0x80) return (code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z');
  return (U_GET_GC_MASK(static_cast<UChar32>(code)) & (U_GC_L_MASK | U_GC_M_MASK)) != 0;
}

bool isWhiteSpace(char32_t code) {
  return u_isUWhiteSpace(static_cast<UChar32>(code)) != 0;
}

}  // namespace vistrelle::platform
