#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/whole_numbers.h"

namespace vistrelle {
namespace {

/// The piece before the first `sign`, which is cut off the text with it; "" when there is none.
std::string_view takeBefore(std::string_view& text, char sign) {
  const std::size_t at = text.find(sign);
  if (at == std::string_view::npos) return "";
  const std::string_view piece = text.substr(0, at);
  text.remove_prefix(at + 1);
  return piece;
}

}  // namespace

double sizeInUnit(std::int64_t bytes, const platform::OptionalText& unit) {
  const auto count = static_cast<double>(bytes);
  if (bytes < 1) return count;
  const std::string upper = platform::uppercased(unit.value_or("k"));
  if (upper == "K") return count * 0.0009765625;
  if (upper == "M") return count * 9.5367431640625e-7;
  if (upper == "G") return count * 9.313225746154785e-10;
  return count;
}

std::string minutesOffsetStr(float minutes) {
  if (!(minutes > 0)) return "";
  return platform::format("-{}{:.1f}'", minutes < 10 ? "0" : "", minutes);
}

std::string durationStr(std::int64_t seconds) {
  const std::int64_t hours = seconds / 3600;
  // Below an hour, negative numbers included, the minutes keep all of their hours.
  const std::int64_t minutes = seconds < 3600 ? seconds / 60 : seconds / 60 - 60 * hours;
  const std::int64_t rest = seconds - 3600 * hours - 60 * minutes;
  return platform::format("{}h{}{}'{}{}\"", hours, minutes < 10 ? "0" : "", minutes, rest < 10 ? "0" : "", rest);
}

std::int64_t secondesStr2Int(const platform::OptionalValue& text) {
  const std::string whole = platform::description(text);
  const auto holds = [&whole](char sign) { return whole.find(sign) != std::string::npos; };
  if (!holds('h') || !holds('\'') || !holds('"')) return integerValue(whole);
  logVerbose("secondesStr2Int     :-) {}", whole);
  std::string_view rest = whole;
  const std::int64_t hours = integerValue(takeBefore(rest, 'h'));
  const std::int64_t minutes = integerValue(takeBefore(rest, '\''));
  const std::int64_t seconds = integerValue(takeBefore(rest, '"'));
  return saturatingSum(saturatingSum(seconds, saturatingProduct(60, minutes)), saturatingProduct(3600, hours));
}

}  // namespace vistrelle
