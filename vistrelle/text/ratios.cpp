#include <algorithm>
#include <cmath>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

/// 10^decimals in single precision; 1 for no decimals and for negative ones.
float powerOfTen(std::int64_t decimals) {
  constexpr std::int64_t kBeyond = 39;  // 10^39 is infinite in single precision
  std::string digits = "1";
  digits.append(static_cast<std::size_t>(std::clamp<std::int64_t>(decimals, 0, kBeyond)), '0');
  return floatValue(digits);
}

}  // namespace

float nbArrondi(std::int64_t decimals, float value) {
  float rounded = 0;
  if (decimals == 0) {
    // Halves go upward, below zero too: -2.7 gives -2.
    const double moved = static_cast<double>(value) + 0.5;
    logVerbose("{:f}", moved);
    logVerbose("{}", truncatedInteger(moved));
    rounded = static_cast<float>(std::trunc(moved));
  } else {
    const float power = powerOfTen(decimals);
    const float half = value >= 0 ? 0.5F : -0.5F;
    const float scaled = power * value;
    const float moved = scaled + half;
    logVerbose("{:f}", moved);
    logVerbose("{}", truncatedInteger(static_cast<double>(moved)));
    rounded = std::trunc(moved) / power;
  }
  logVerbose("nbArrondi            : {:f}", rounded);
  return rounded;
}

float nbTrimmed(std::int64_t decimals, float value) {
  const float power = powerOfTen(decimals);
  const float scaled = value * power;
  const float trimmed = decimals == 0 ? std::trunc(value) : std::trunc(scaled) / power;
  logVerbose("nbTrimmed           : {:f}", trimmed);
  return trimmed;
}

std::string float2FractionStr(float ratio) {
  const auto exact = static_cast<double>(ratio);
  const auto isNear = [exact](double value) { return std::abs(exact - value) <= 0.02; };
  if (std::abs(exact) < 0.1 || isNear(1.0)) return "1:1";
  if (isNear(1.33)) return "4:3";
  if (isNear(1.77)) return "16:9";
  const float thousandths = ratio * 1000.0F;
  const auto [width, height] = reduceRatio(truncatedInteger(static_cast<double>(thousandths)), 1000);
  const std::string text = platform::format("{}:{}", width, height);
  log("float2FractionStr : {} (<-{:.3f})", text, ratio);
  return text;
}

float fractionStr2Float(const platform::OptionalText& text) {
  float ratio = 1;
  if (!text) return ratio;
  const std::size_t colon = text->find(':');
  if (colon == std::string::npos) {
    ratio = str2Float(text);
    log("fractionStr2Float :-/ {:.3f} (<-{})", ratio, *text);
  } else {
    const std::string_view rest = std::string_view(*text).substr(colon + 1);
    const float first = floatValue(std::string_view(*text).substr(0, colon));
    const float second = floatValue(rest.substr(0, rest.find(':')));
    ratio = second == 0 ? 0 : first / second;
    if (std::isnan(ratio)) ratio = 0;
    logVerbose("fractionStr2Float :-) {:.3f} (<-{})", ratio, *text);
  }
  return std::abs(static_cast<double>(ratio)) < 0.1 ? 1.0F : ratio;
}

std::int64_t str2Int(const platform::OptionalText& text) {
  return truncatedInteger(static_cast<double>(str2Float(text)));
}

}  // namespace vistrelle
