#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Numbers as texts and back, with their own rounding rules. Whole-number division truncates toward zero, fractional
/// values are single precision unless a double is said, results beyond the 64-bit range are the nearest number in it.
/// Pure functions apart from their log lines; safe on any thread.
namespace vistrelle {

/// Bytes in "K" (1,024), "M" or "G", either case, not rounded; the byte count for any other unit and below 1. An absent
/// unit means "k".
double sizeInUnit(std::int64_t bytes, const platform::OptionalText& unit);

/// "-05.5'" for 5.5 minutes; "" for 0, below, and what is not a number.
std::string minutesOffsetStr(float minutes);

/// "1h02'05\"" for 3725. Negative durations follow the same divisions, odd as they look.
std::string durationStr(std::int64_t seconds);

/// Back to seconds; a text that is not of that form is read as a whole number.
std::int64_t secondesStr2Int(const platform::OptionalValue& text);

/// Both divided by their common factors 2, 3, 5, 7, 11, 13 and 17, no others; (0, 0) gives (1, 1).
std::pair<std::int64_t, std::int64_t> reduceRatio(std::int64_t a, std::int64_t b);

/// A number near `asked` that divides both sizes: `asked` itself, else the first divisor in three ranges around it,
/// else the largest in a fixed list; -1 when there is none. `evenOnly` skips odd numbers. An asked value of 0 gives -1.
std::int64_t commonSubMultiple(std::int64_t a, std::int64_t b, std::int64_t asked, bool evenOnly);

/// n rounded to a multiple of m, half of m upward. A step of 0 gives n.
std::int64_t nbMultipleArrondi(std::int64_t n, std::int64_t m);

/// The value rounded to that many decimals, halves away from zero; without decimals trunc(value + 0.5).
float nbArrondi(std::int64_t decimals, float value);

/// The value cut to that many decimals.
float nbTrimmed(std::int64_t decimals, float value);

/// "4:3", "16:9", "1:1" for ratios near them, else thousandths reduced ("37:20").
std::string float2FractionStr(float ratio);

/// The ratio of "16:9", or the number of a text without ":". 1 for an absent text and wherever the ratio is below 0.1,
/// a division by zero, or of two infinities, counting as 0.
float fractionStr2Float(const platform::OptionalText& text);

/// The field number `index` (from 0) of the text split at the separator; 666 is the last but one, 777 the last. The
/// text itself for an index outside, without the separator, and for a text that is a number; "" for an absent text.
std::string ASTID(const platform::OptionalText& text, const platform::OptionalText& separator, std::int64_t index);

/// 1.0203 for "1.2.3".
float versionStr2Float(const platform::OptionalText& version);

/// The elements as numbers, ascending; absent for an absent or empty list. Texts are read by str2Float. What is not a
/// number (NaN) comes first.
std::optional<platform::List> sortedNumbers(const std::optional<platform::List>& list);

/// str2Float without the fraction.
std::int64_t str2Int(const platform::OptionalText& text);

/// "1:02:05.500" for 3725.5 with 3 decimals (at most 3); `padHours` gives "01:02:05.500". The fraction is cut, not
/// rounded. Without decimals the hours are never padded.
std::string secondsToTimecodeStr(float seconds, std::int64_t decimals, bool padHours);

/// One timecode of 3 decimals an element, preceded by that of 0 when the first element is a second or later; absent
/// for an absent or empty list.
std::optional<std::vector<std::string>> secondsListToTimecodes(const std::optional<platform::List>& list);

}  // namespace vistrelle

#pragma GCC visibility pop
