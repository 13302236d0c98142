#pragma once

#include <string>
#include <string_view>

#include "vistrelle/platform/base/utf8.h"

/// Case, order and character classes after the Unicode tables, the same in every locale. Bytes that are not valid
/// UTF-8 pass through unchanged.
namespace vistrelle::platform {

/// Full case mappings ("ß" becomes "SS" in upper case), no language's own rules.
std::string lowercased(std::string_view text);
std::string uppercased(std::string_view text);
/// Every upper-case character lowered, every lower-case one raised, others kept.
std::string invertedCase(std::string_view text);
/// Full case folding, for comparing.
std::string caseFolded(std::string_view text);

bool equalsIgnoringCase(std::string_view first, std::string_view second);
/// Order of the case-folded code points, ties by the unfolded text: below, equal to or above 0. Only the same text
/// is equal.
int compareIgnoringCase(std::string_view first, std::string_view second);

/// Letters of every script, with the marks that combine with them (categories L and M).
bool isLetter(char32_t code);
/// White space, line ends included.
bool isWhiteSpace(char32_t code);
/// Line feed, vertical tab, form feed, carriage return, next line, line separator, paragraph separator.
constexpr bool isNewline(char32_t code) {
  return (code >= 0x0A && code <= 0x0D) || code == 0x85 || code == 0x2028 || code == 0x2029;
}

}  // namespace vistrelle::platform
