// The rounding rules against models of their own: each single-precision step is an exact number rounded once by
// integer arithmetic, so that a model shares no floating-point operation with the code.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <random>

#include "tests/support/recording_log.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using testing::RecordingLog;

// GCC and clang have it on every 64-bit target.
__extension__ using Wide = __int128;

std::uint32_t bits(float value) {
  std::uint32_t pattern = 0;
  std::memcpy(&pattern, &value, sizeof pattern);
  return pattern;
}

/// numerator / denominator * 2^exponent rounded to 24 bits, ties to even; for results in the normal range.
float roundedToSingle(Wide numerator, Wide denominator, int exponent) {
  if (numerator == 0) return 0;
  const bool negative = numerator < 0;
  if (negative) numerator = -numerator;
  while (numerator / denominator >= (Wide{1} << 24)) {
    denominator *= 2;
    ++exponent;
  }
  while (numerator / denominator < (Wide{1} << 23)) {
    numerator *= 2;
    --exponent;
  }
  Wide quotient = numerator / denominator;
  const Wide rest = numerator % denominator;
  if (rest * 2 > denominator || (rest * 2 == denominator && quotient % 2 == 1)) ++quotient;
  const float value = std::ldexp(static_cast<float>(static_cast<std::int64_t>(quotient)), exponent);
  return negative ? -value : value;
}

/// A float as mantissa * 2^exponent.
struct Parts {
  std::int64_t mantissa;
  int exponent;
};

Parts partsOf(float value) {
  int exponent = 0;
  const float fraction = std::frexp(value, &exponent);
  return {static_cast<std::int64_t>(std::ldexp(fraction, 24)), exponent - 24};
}

float product(float value, std::int64_t factor) {
  const Parts parts = partsOf(value);
  return roundedToSingle(Wide{parts.mantissa} * factor, 1, parts.exponent);
}

/// value + halves / 2, rounded once.
float plusHalves(float value, int halves) {
  Parts parts = partsOf(value);
  Wide mantissa = parts.mantissa;
  if (parts.exponent < -60) return roundedToSingle(halves, 1, -1);  // far too small to be seen
  while (parts.exponent > -1) {
    mantissa *= 2;
    --parts.exponent;
  }
  return roundedToSingle(mantissa + Wide{halves} * (Wide{1} << (-1 - parts.exponent)), 1, parts.exponent);
}

std::int64_t truncated(float value) {
  const Parts parts = partsOf(value);
  if (parts.exponent >= 0) return parts.mantissa << parts.exponent;
  if (parts.exponent < -62) return 0;
  return parts.mantissa / (std::int64_t{1} << -parts.exponent);
}

float quotient(std::int64_t numerator, std::int64_t denominator) {
  return roundedToSingle(numerator, denominator, 0);
}

constexpr std::int64_t kPowers[] = {1, 10, 100, 1000, 10000, 100000};

/// Values of the kinds that ratios, times and sizes have.
class Values {
 public:
  explicit Values(unsigned seed) : generator_(seed) {}
  float next() {
    switch (generator_() % 4) {
      case 0:
        return static_cast<float>(static_cast<int>(generator_() % 2000001) - 1000000) / 1000.0F;
      case 1:
        return static_cast<float>(static_cast<int>(generator_() % 200001) - 100000) / 16.0F;
      case 2:
        return std::ldexp(static_cast<float>(static_cast<int>(generator_() % (1U << 25)) - (1 << 24)),
                          static_cast<int>(generator_() % 40) - 36);
      default:
        return static_cast<float>(static_cast<int>(generator_() % 20001) - 10000);
    }
  }
  std::uint64_t below(std::uint64_t bound) { return generator_() % bound; }

 private:
  std::mt19937_64 generator_;
};

TEST(NumberModel, RoundsAsTheProcessorDoes) {
  Values values(1);
  for (int round = 0; round < 100000; ++round) {
    const float value = values.next();
    ASSERT_EQ(bits(product(value, 1000)), bits(value == 0 ? 0.0F : value * 1000.0F));
    if (value != 0) {
      ASSERT_EQ(bits(plusHalves(value, 1)), bits(value + 0.5F)) << value;
    }
  }
}

TEST(NbArrondi, EveryBitAsTheRuleStates) {
  Values values(2);
  for (int round = 0; round < 200000; ++round) {
    const float value = values.next();
    const auto decimals = static_cast<std::int64_t>(values.below(6));
    float expected = 0;
    if (decimals == 0) {
      // In double precision the sum of a float of this size and a half is exact, but for the tiniest.
      const double moved = static_cast<double>(value) + 0.5;
      expected = static_cast<float>(static_cast<std::int64_t>(moved));
      expected = std::copysign(expected, static_cast<float>(moved));
    } else {
      const float moved = plusHalves(product(value, kPowers[decimals]), value >= 0 ? 1 : -1);
      if (std::abs(moved) > 9e18F) continue;
      expected = std::copysign(quotient(truncated(moved), kPowers[decimals]), moved);
    }
    ASSERT_EQ(bits(nbArrondi(decimals, value)), bits(expected)) << value << " " << decimals;
  }
}

TEST(NbTrimmed, EveryBitAsTheRuleStates) {
  Values values(3);
  for (int round = 0; round < 200000; ++round) {
    const float value = values.next();
    const auto decimals = static_cast<std::int64_t>(values.below(6));
    const float scaled = product(value, kPowers[decimals]);
    if (std::abs(scaled) > 9e18F) continue;
    const float expected = std::copysign(quotient(truncated(scaled), kPowers[decimals]), value);
    ASSERT_EQ(bits(nbTrimmed(decimals, value)), bits(expected)) << value << " " << decimals;
  }
}

TEST(NbArrondi, IsNearItsValue) {
  Values values(4);
  for (int round = 0; round < 100000; ++round) {
    const float value = static_cast<float>(values.below(1000000)) / 997.0F;
    const auto decimals = static_cast<std::int64_t>(1 + values.below(3));
    const double step = 1.0 / static_cast<double>(kPowers[decimals]);
    const double tolerance = step / 2 + static_cast<double>(value) * 2e-7;
    ASSERT_NEAR(static_cast<double>(nbArrondi(decimals, value)), static_cast<double>(value), tolerance);
  }
}

TEST(Float2FractionStr, EveryRatioAsTheRuleStates) {
  RecordingLog log;
  Values values(5);
  for (int round = 0; round < 20000; ++round) {
    const float ratio = std::abs(values.next());
    if (ratio > 1e6F) continue;
    const Parts parts = partsOf(ratio);
    // |ratio - n/100| <= 0.02 by integers; the bounds themselves are no floats, so that rounding cannot matter.
    const auto within = [&](std::int64_t hundredths) {
      if (parts.exponent < -60) return hundredths <= 2;
      Wide mantissa = parts.mantissa;
      int shift = -parts.exponent;
      while (shift < 0) {
        mantissa *= 2;
        ++shift;
      }
      const Wide unit = Wide{1} << shift;
      const Wide distance = mantissa * 100 - Wide{hundredths} * unit;
      return (distance < 0 ? -distance : distance) <= 2 * unit;
    };
    const bool tiny = static_cast<double>(ratio) < 0.1;
    std::string expected;
    if (tiny || within(100)) {
      expected = "1:1";
    } else if (within(133)) {
      expected = "4:3";
    } else if (within(177)) {
      expected = "16:9";
    } else {
      const std::int64_t thousandths = truncated(product(ratio, 1000));
      const std::int64_t common = std::gcd(thousandths, std::int64_t{1000});
      expected = std::to_string(thousandths / common) + ":" + std::to_string(1000 / common);
    }
    ASSERT_EQ(float2FractionStr(ratio), expected) << ratio;
  }
}

TEST(ReduceRatio, OnlyTheListedFactorsGo) {
  EXPECT_EQ(reduceRatio(1920, 1080), std::pair(std::int64_t{16}, std::int64_t{9}));
  EXPECT_EQ(reduceRatio(0, 0), std::pair(std::int64_t{1}, std::int64_t{1}));
  EXPECT_EQ(reduceRatio(38, 19), std::pair(std::int64_t{38}, std::int64_t{19}));
  EXPECT_EQ(reduceRatio(0, 8), std::pair(std::int64_t{0}, std::int64_t{1}));
  EXPECT_EQ(reduceRatio(-16, 12), std::pair(std::int64_t{-4}, std::int64_t{3}));
  EXPECT_EQ(reduceRatio(17 * 19, 17 * 19), std::pair(std::int64_t{19}, std::int64_t{19}));
  Values values(6);
  for (int round = 0; round < 50000; ++round) {
    const auto a = static_cast<std::int64_t>(values.below(5000));
    const auto b = static_cast<std::int64_t>(1 + values.below(5000));
    std::int64_t factor = 1;
    std::int64_t common = std::gcd(a, b);
    for (const std::int64_t prime : {2, 3, 5, 7, 11, 13, 17}) {
      for (; common % prime == 0; common /= prime) factor *= prime;
    }
    ASSERT_EQ(reduceRatio(a, b), std::pair(a / factor, b / factor)) << a << " " << b;
  }
}

TEST(SecondsToTimecodeStr, EveryDigitAsTheRuleStates) {
  Values values(7);
  for (int round = 0; round < 200000; ++round) {
    const float seconds = std::abs(values.next());
    const auto decimals = static_cast<std::int64_t>(values.below(5));
    if (seconds >= 2147483520.0F) continue;
    const std::int64_t whole = truncated(seconds);
    const auto two = [](std::int64_t number) { return std::string(number < 10 ? "0" : "") + std::to_string(number); };
    std::string expected = std::to_string(whole / 3600) + ":" + two(whole / 60 % 60) + ":" + two(whole % 60);
    if (decimals > 0) {
      const auto digits = static_cast<std::size_t>(std::min<std::int64_t>(decimals, 3));
      // The whole part of a float can be taken off it exactly.
      const Parts parts = partsOf(seconds);
      Wide rest = parts.mantissa;
      if (parts.exponent >= 0)
        rest = 0;
      else if (parts.exponent > -62)
        rest %= Wide{1} << -parts.exponent;
      const float scaled = roundedToSingle(rest * kPowers[digits], 1, parts.exponent);
      std::string fraction = std::to_string(truncated(scaled));
      fraction.insert(0, fraction.size() < digits ? digits - fraction.size() : 0, '0');
      expected += "." + fraction;
    }
    ASSERT_EQ(secondsToTimecodeStr(seconds, decimals, false), expected) << seconds << " " << decimals;
  }
}

/// The search as it is stated, one candidate after the other.
std::int64_t searchedOneByOne(std::int64_t a, std::int64_t b, std::int64_t asked, bool evenOnly) {
  const auto divides = [&](std::int64_t d) { return a % d == 0 && b % d == 0; };
  if (divides(asked) && (!evenOnly || asked % 2 == 0)) return asked;
  const auto around = static_cast<double>(static_cast<float>(asked));
  const std::pair<std::int64_t, std::int64_t> ranges[] = {
      {static_cast<std::int64_t>(around / 1.5 + 0.5), static_cast<std::int64_t>(around * 1.5)},
      {static_cast<std::int64_t>(around * 0.5), static_cast<std::int64_t>(around / 1.5)},
      {static_cast<std::int64_t>(static_cast<double>(asked) * 1.5), 2 * asked}};
  for (const auto& [from, end] : ranges) {
    for (std::int64_t d = from; d < end; ++d) {
      if ((!evenOnly || d % 2 == 0) && divides(d)) return d;
    }
  }
  if (evenOnly) {
    for (std::int64_t d = 2 * asked; d >= 2; d -= 2) {
      if (divides(d)) return d;
    }
    return -1;
  }
  for (const std::int64_t d :
       {199, 197, 191, 181, 179, 167, 157, 149, 139, 137, 131, 127, 113, 109, 107, 101, 89, 83, 71,
        67,  59,  53,  47,  41,  37,  31,  29,  23,  19,  17,  13,  11,  7,   5,   3,   2,  1}) {
    if (divides(d)) return d;
  }
  return -1;
}

TEST(CommonSubMultiple, EqualsTheSearchOneByOne) {
  RecordingLog log;
  Values values(8);
  for (int round = 0; round < 20000; ++round) {
    std::int64_t a = static_cast<std::int64_t>(values.below(4000));
    std::int64_t b = static_cast<std::int64_t>(values.below(4000));
    if (round % 2 == 0) {
      const auto common = static_cast<std::int64_t>(1 + values.below(400));
      a *= common;
      b *= common;
    }
    if (round % 7 == 0) a = -a;
    const auto asked = static_cast<std::int64_t>(1 + values.below(round % 3 == 0 ? 3000 : 100));
    const bool evenOnly = round % 5 < 2;
    ASSERT_EQ(commonSubMultiple(a, b, asked, evenOnly), searchedOneByOne(a, b, asked, evenOnly))
        << a << " " << b << " " << asked << " " << evenOnly;
  }
}

TEST(CommonSubMultiple, Examples) {
  RecordingLog log(true);
  EXPECT_EQ(commonSubMultiple(1920, 1088, 16, false), 16);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "nbsSousMultipleCommu: size=1920 vs 1088 -> results=0 & 0 (with 16 as the asked Under "
                             "Common Multiple)",
                             "nbsSousMultipleCommu:-) initial 16 is a valid Under Common Multiple"}));
  log.clear();
  EXPECT_EQ(commonSubMultiple(1000, 600, 16, false), 20);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "nbsSousMultipleCommu: size=1000 vs 600 -> results=8 & 8 (with 16 as the asked Under "
                "Common Multiple)",
                "nbsSousMultipleCommu: pass ± 16", "SousMultiple mod    :-) 20", "nbsSousMultipleCommu: fin 20"}));
  // 16 does not divide 1080: the first range finds 12.
  EXPECT_EQ(commonSubMultiple(1920, 1080, 16, false), 12);
}

TEST(CommonSubMultiple, EveryRangeIsLogged) {
  RecordingLog log(true);
  EXPECT_EQ(commonSubMultiple(7, 7, 100, false), 7);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "nbsSousMultipleCommu: size=7 vs 7 -> results=7 & 7 (with 100 as the asked Under Common "
                             "Multiple)",
                             "nbsSousMultipleCommu: pass ± 100", "nbsSousMultipleCommu: pass range < 100",
                             "nbsSousMultipleCommu: pass range > 100", "nbsSousMultipleCommu: pass range nb 1ers",
                             "SousMultiple mod    :-) 7", "nbsSousMultipleCommu: fin 7"}));
}

TEST(CommonSubMultiple, NothingFound) {
  RecordingLog log(false);
  EXPECT_EQ(commonSubMultiple(7, 9, 16, true), -1);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "nbsSousMultipleCommu: size=7 vs 9 -> results=7 & 7 (with 16 as the asked Under Common "
                             "Multiple)",
                             "nbsSousMultipleCommu: fin -1"}));
  EXPECT_EQ(commonSubMultiple(43, 43, 300, false), 1);  // 43 is not in the list
}

TEST(CommonSubMultiple, HugeAndOddArgumentsEnd) {
  RecordingLog log;
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(commonSubMultiple(1920, 1080, 0, false), -1);
  EXPECT_EQ(commonSubMultiple(1920, 1080, 1000000000000, false), 5);
  EXPECT_EQ(commonSubMultiple(kLargest, kLargest, kLargest - 1, false), 127);
  EXPECT_EQ(commonSubMultiple(kSmallest, kSmallest, -1, false), -1);
  EXPECT_EQ(commonSubMultiple(kSmallest, kSmallest, -7, true), -1);
  EXPECT_EQ(commonSubMultiple(0, 0, 7, true), 6);
  EXPECT_EQ(commonSubMultiple(0, 0, 1, true), 2);
}

}  // namespace
}  // namespace vistrelle
