#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// The text operations that every module leans on. Pure functions apart from their log lines and the random seam;
/// safe on any thread. A character is a Unicode code point; a stray byte of text that is not valid UTF-8 counts as one
/// character, and no operation cuts inside a character.
namespace vistrelle {

using platform::OptionalText;
using platform::OptionalValue;
using platform::Value;

/// Every occurrence of `search` replaced, left to right, in one pass; absent when one of the three is. With `repeat`
/// the passes go on until the search is gone ("  " by " " collapses every run of blanks); where the replacement holds
/// the search, the result is that of one pass, reached through a marker. An empty search occurs nowhere.
///
/// Some pairs make a repetition that never ends or grows without end ("ab" by "bbaa"): it stops, with one log line
/// and the text so far, when the text outgrows both 1 MiB and 16 times the first pass, or after 10^8 replacements.
OptionalText findAndReplace(const OptionalText& text, const OptionalText& search, const OptionalText& replacement,
                            bool repeat);

/// The number after any letters at the start of the text, blanks left out: optional sign, digits, point, exponent.
/// 0 when there is none, infinity on overflow. A negative value with a fractional thousandth comes back 0.0001 nearer
/// to zero.
float str2Float(const OptionalText& text);
/// What str2Float answers, without its log lines.
float readFloat(const OptionalText& text);
/// str2Float without the first and last character (quotes, brackets); 0 for an absent or empty text.
float str2FloatInner(const OptionalText& text);

/// The description of an object, cut to `maximum` characters and marked " […]" when longer. A maximum below 1 or above
/// 999 means 50.
std::string shortDescription(const OptionalValue& object, std::int64_t maximum = -1);

/// Without the blanks (only " ") at the asked ends; absent when nothing is left.
OptionalText trimBlanks(const OptionalText& text, bool leading, bool trailing);

/// The non-empty lines; every line separator of Unicode ends one.
std::vector<std::string> splitLines(const OptionalText& text);

/// The number after `marker`; after "time=" a clock time h:m:s in seconds. 0 when there is none.
float progressValueAfter(const OptionalText& text, const OptionalText& marker);

/// A text with the styles that HTML gave it.
struct StyledText {
  /// A stretch of one style.
  struct Run {
    std::size_t start = 0;    ///< in bytes
    std::size_t length = 0;   ///< in bytes
    bool bold = false;        ///< as b
    bool italic = false;      ///< as i
    bool underlined = false;  ///< as u and links
    bool operator==(const Run&) const = default;
  };
  std::string text;       ///< without the elements
  std::vector<Run> runs;  ///< the styled stretches, in order
  bool operator==(const StyledText&) const = default;
};

/// The text with HTML entities resolved and elements taken as styles; line ends are kept.
std::optional<StyledText> htmlEntityDecode(const OptionalText& text);
/// Its plain text; a blank " " for an absent text.
std::string htmlEntityDecodeStr(const OptionalText& text);

/// The sum of the decimal digits, repeated down to one digit; a number below 10 as it is.
std::int64_t digitSum(std::int64_t number);

/// The description ("%@") of any object; "(null)" for none.
std::string textOf(const OptionalValue& object);
/// The elements' texts joined by one blank; "" for none.
std::string joinWords(const std::vector<std::string>& list);
std::string joinWords(const std::optional<platform::List>& list);
/// The description of an object, cut to at most `maximum` characters, no mark.
std::string prefixOfText(const OptionalValue& object, std::int64_t maximum);
/// Whether the text contains any of the strings; `ignoreCase` lowers both sides first. An empty string occurs nowhere.
bool containsAnyOf(const OptionalText& text, const std::optional<std::vector<std::string>>& strings, bool ignoreCase);
/// "#rrggbb" to "bbggrr" (one "#" at either end is dropped); absent for any other length.
OptionalText hexColorSwap(const OptionalText& colour);
/// The component after "Users" in the home folder's path, or after "home" where there is no "Users".
OptionalText userNameFromHome();
/// Every letter's case flipped.
OptionalText invertCase(const OptionalText& text);
/// The characters in reverse order.
OptionalText reverseText(const OptionalText& text);
/// The last path component with every "%" replaced by "_"; "" for none.
std::string percentFreeName(const OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
