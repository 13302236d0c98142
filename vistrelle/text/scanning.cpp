#include "vistrelle/text/scanning.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view withoutLeadingWhiteSpace(std::string_view text) {
  while (!text.empty()) {
    const platform::Character character = platform::characterAt(text, 0);
    if (!character.valid || !platform::isWhiteSpace(character.code)) break;
    text.remove_prefix(character.length);
  }
  return text;
}

/// Whether the unsigned number, which no float can hold, is too large rather than too small.
bool isTooLarge(std::string_view number) {
  constexpr std::int64_t kFar = 1'000'000'000'000;
  std::int64_t magnitude = 0;  // power of ten of the first digit that is not 0
  bool significant = false;
  bool fraction = false;
  std::size_t i = 0;
  for (; i < number.size() && (isDigit(number[i]) || number[i] == '.'); ++i) {
    if (number[i] == '.') {
      fraction = true;
      continue;
    }
    if (fraction && !significant) --magnitude;
    if (number[i] != '0') significant = true;
    if (!fraction && significant) ++magnitude;
  }
  if (i == number.size()) return magnitude > 0;
  std::string_view exponentText = number.substr(i + 1);
  const bool negative = exponentText.starts_with('-');
  if (negative || exponentText.starts_with('+')) exponentText.remove_prefix(1);
  std::int64_t exponent = 0;
  for (const char c : exponentText) {
    if (exponent < kFar) exponent = exponent * 10 + (c - '0');
  }
  return magnitude + (negative ? -exponent : exponent) > 0;
}

}  // namespace

ScannedFloat scanFloat(std::string_view text) {
  const bool negative = text.starts_with('-');
  const std::size_t sign = negative || text.starts_with('+') ? 1 : 0;
  const std::string_view number = text.substr(sign);
  const bool begins =
      !number.empty() && (isDigit(number[0]) || (number.size() > 1 && number[0] == '.' && isDigit(number[1])));
  if (!begins) return {};
  float value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  const auto length = static_cast<std::size_t>(end - number.data());
  if (error != std::errc{}) {
    value = isTooLarge(number.substr(0, length)) ? std::numeric_limits<float>::infinity() : 0.0F;
  }
  return {negative ? -value : value, sign + length};
}

float floatValue(std::string_view text) {
  return scanFloat(withoutLeadingWhiteSpace(text)).value;
}

std::int64_t integerValue(std::string_view text) {
  text = withoutLeadingWhiteSpace(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  for (const char c : text) {
    if (!isDigit(c)) break;
    const std::int64_t digit = negative ? -(c - '0') : c - '0';
    if (__builtin_mul_overflow(value, std::int64_t{10}, &value) || __builtin_add_overflow(value, digit, &value)) {
      return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
  }
  return value;
}

std::int64_t integerOf(const platform::Value& value) {
  if (const auto* whole = value.get<std::int64_t>()) return *whole;
  if (const auto number = value.number()) return truncatedInteger(*number);
  return integerValue(platform::description(value));
}

std::int64_t truncatedInteger(double number) {
  constexpr double kBeyond = 9223372036854775808.0;  // 2^63
  if (std::isnan(number)) return 0;
  if (number >= kBeyond) return std::numeric_limits<std::int64_t>::max();
  if (number < -kBeyond) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

}  // namespace vistrelle
