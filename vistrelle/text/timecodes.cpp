#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

constexpr std::int64_t kMostDecimals = 3;
constexpr std::array<std::int64_t, 4> kPowers = {1, 10, 100, 1000};

std::string twoDigits(std::int64_t number) {
  return platform::format("{}{}", number < 10 ? "0" : "", number);
}

std::string fractionDigits(float seconds, std::size_t decimals) {
  const float fraction = std::abs(seconds - std::trunc(seconds));
  const float scaled = fraction * static_cast<float>(kPowers[decimals]);
  const std::int64_t digits = truncatedInteger(static_cast<double>(scaled));
  std::string text;
  for (std::size_t power = decimals; power-- > 1;) {
    if (kPowers[power] > digits) text += '0';
  }
  return text + std::to_string(digits);
}

float floatOf(const platform::Value& value) {
  if (const auto number = value.number()) return static_cast<float>(*number);
  return floatValue(platform::description(value));
}

}  // namespace

std::string secondsToTimecodeStr(float seconds, std::int64_t decimals, bool padHours) {
  decimals = std::min(decimals, kMostDecimals);
  // The whole seconds are a 32-bit number.
  const std::int64_t whole =
      std::clamp<std::int64_t>(truncatedInteger(static_cast<double>(seconds)), std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max());
  const std::int64_t hours = whole / 3600;
  const std::int64_t rest = whole % 3600;
  const std::string text = platform::format("{}:{}:{}", hours, twoDigits(rest / 60), twoDigits(rest % 60));
  if (decimals == 0) return text;
  const std::string fraction = decimals < 0 ? "0" : fractionDigits(seconds, static_cast<std::size_t>(decimals));
  return platform::format("{}{}.{}", hours < 10 && padHours ? "0" : "", text, fraction);
}

std::optional<std::vector<std::string>> secondsListToTimecodes(const std::optional<platform::List>& list) {
  if (!list || list->empty()) return std::nullopt;
  std::vector<std::string> timecodes;
  if (integerOf(list->front()) > 0) timecodes.push_back(secondsToTimecodeStr(0, kMostDecimals, false));
  for (const platform::Value& element : *list) {
    timecodes.push_back(secondsToTimecodeStr(floatOf(element), kMostDecimals, false));
  }
  return timecodes;
}

}  // namespace vistrelle
