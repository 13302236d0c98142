#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "tests/support/recording_log.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using testing::RecordingLog;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::uint32_t bits(float value) {
  std::uint32_t pattern = 0;
  std::memcpy(&pattern, &value, sizeof pattern);
  return pattern;
}

TEST(Str2Float, NumbersAmongLettersAndBlanks) {
  EXPECT_EQ(str2Float("12.5 fps"), 12.5F);
  EXPECT_EQ(str2Float("abc 3.25"), 3.25F);
  EXPECT_EQ(str2Float("1 234.5"), 1234.5F);
  EXPECT_EQ(str2Float("12,5"), 12.0F);
  EXPECT_EQ(str2Float("-0.7"), -0.6999F);
  EXPECT_EQ(str2Float("word"), 0.0F);
  EXPECT_EQ(str2Float(""), 0.0F);
  EXPECT_EQ(str2Float(std::nullopt), 0.0F);
}

TEST(Str2Float, Forms) {
  EXPECT_EQ(str2Float("1e3"), 1000.0F);
  EXPECT_EQ(str2Float("1E-2"), 0.01F);
  EXPECT_EQ(str2Float(".5"), 0.5F);
  EXPECT_EQ(str2Float("+2"), 2.0F);
  EXPECT_EQ(str2Float("5."), 5.0F);
  EXPECT_EQ(str2Float("3e"), 3.0F);
  EXPECT_EQ(str2Float("3e+"), 3.0F);
  EXPECT_EQ(str2Float("- 2"), -2.0F);
  EXPECT_EQ(str2Float("1.2.3"), 1.2F);
  EXPECT_EQ(str2Float("0x10"), 0.0F);
}

TEST(Str2Float, NoNumber) {
  for (const char* text :
       {"inf", "nan", "-inf", "-nan", "infinity", ".", "-", "+", "--1", "+-1", "(3)", "a_3", "\t3", "e"}) {
    EXPECT_EQ(bits(str2Float(text)), bits(0.0F)) << text;
  }
}

TEST(Str2Float, LettersOfEveryScriptAreSkipped) {
  EXPECT_EQ(str2Float("Durée : 5"), 0.0F);
  EXPECT_EQ(str2Float("Durée 5"), 5.0F);
  EXPECT_EQ(str2Float("De\u0301but 6"), 6.0F);
  EXPECT_EQ(str2Float("скорость 7"), 7.0F);
  EXPECT_EQ(str2Float("時間8"), 8.0F);
  EXPECT_EQ(str2Float("🎬9"), 0.0F);
  EXPECT_EQ(str2Float("\xC3"
                      "4"),
            0.0F);
}

TEST(Str2Float, BeyondEveryRange) {
  EXPECT_EQ(str2Float("1e39"), kInfinity);
  EXPECT_EQ(str2Float("-1e39"), -kInfinity);
  EXPECT_EQ(str2Float("1e999999999999999999999"), kInfinity);
  EXPECT_EQ(str2Float("1e-999999999999999999999"), 0.0F);
  EXPECT_EQ(str2Float("-1e-60"), 0.0F);
  EXPECT_EQ(str2Float("0e999999999"), 0.0F);
  EXPECT_EQ(str2Float(std::string(1000000, '9')), kInfinity);
  EXPECT_EQ(str2Float("0." + std::string(1000000, '0') + "1"), 0.0F);
  EXPECT_EQ(str2Float("0." + std::string(1000000, '0') + "1e1000001"), 1.0F);
  EXPECT_EQ(str2Float(std::string(1000000, '0') + "7"), 7.0F);
  EXPECT_EQ(str2Float(std::string(1000000, 'a') + "7"), 7.0F);
  EXPECT_EQ(str2Float(std::string(1000000, ' ') + "7"), 7.0F);
}

TEST(Str2Float, ZeroBytesEndTheNumber) {
  EXPECT_EQ(str2Float(std::string("1\0002", 3)), 1.0F);
}

TEST(Str2Float, LogsWhenVerbose) {
  RecordingLog log(true);
  str2Float("1 2.5 fps");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"str2Float           - deb : 1 2.5 fps…",
                                                   "str2Float           - end :'12.5fps'->12.500000"}));
  log.clear();
  str2Float("rien");
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"str2Float           - deb : rien…", "mais heuu, c'est meme pas un float :("}));
  log.clear();
  str2Float(std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Str2Float, QuietWhenNotVerbose) {
  RecordingLog log(false);
  str2Float("rien");
  str2Float("1");
  EXPECT_TRUE(log.lines().empty());
}

/// The stated arithmetic in exact integers: a value v = m * 2^e is moved when trunc(1000 v), as a float, is above the
/// float nearest to 1000 v.
float movedByTheRule(float value) {
  if (value == 0) return value;
  const long double exact = 1000.0L * static_cast<long double>(value);  // 24 + 10 bits: exact
  const float truncated = static_cast<float>(static_cast<double>(truncl(exact)));
  const float product = static_cast<float>(exact);  // one rounding, as a single-precision product has
  if (truncated > product) return static_cast<float>(static_cast<double>(value) + 0.0001);
  return value;
}

TEST(Str2Float, EveryBitAsTheRuleStates) {
  std::mt19937 generator(20261121);
  int moved = 0;
  for (int round = 0; round < 300000; ++round) {
    float value = 0;
    const auto pattern = static_cast<std::uint32_t>(generator());
    std::memcpy(&value, &pattern, sizeof value);
    if (round % 2 == 0) value = static_cast<float>(static_cast<int>(generator() % 2000001) - 1000000) / 1000.0F;
    if (!std::isfinite(value)) continue;
    char text[64];
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
    const float expected = movedByTheRule(value);
    moved += bits(expected) != bits(value);
    ASSERT_EQ(bits(str2Float(text)), bits(expected)) << text;
  }
  EXPECT_GT(moved, 1000);
}

TEST(Str2Float, PositiveValuesAreLeftAlone) {
  std::mt19937 generator(3);
  for (int round = 0; round < 100000; ++round) {
    const float value = std::ldexp(static_cast<float>(generator()), static_cast<int>(generator() % 60) - 50);
    char text[64];
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
    ASSERT_EQ(bits(str2Float(text)), bits(value)) << text;
  }
}

TEST(Str2Float, SurroundingsDoNotChangeTheNumber) {
  std::mt19937 generator(5);
  for (int round = 0; round < 20000; ++round) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.3f", static_cast<double>(generator() % 100000) / 7.0);
    std::string text = "abcé";
    for (const char* c = digits; *c; ++c) text += std::string(generator() % 3, ' ') + *c;
    ASSERT_EQ(str2Float(text + " fps"), str2Float(digits)) << text;
  }
}

TEST(Str2FloatInner, WithoutTheFirstAndLastCharacter) {
  EXPECT_EQ(str2FloatInner("\"12.5\""), 12.5F);
  EXPECT_EQ(str2FloatInner("(7)"), 7.0F);
  EXPECT_EQ(str2FloatInner("«8»"), 8.0F);
  EXPECT_EQ(str2FloatInner("123"), 2.0F);
  EXPECT_EQ(str2FloatInner(""), 0.0F);
  EXPECT_EQ(str2FloatInner(std::nullopt), 0.0F);
  EXPECT_EQ(str2FloatInner("1"), 0.0F);
  EXPECT_EQ(str2FloatInner("12"), 0.0F);
}

TEST(Str2Int, Truncates) {
  EXPECT_EQ(str2Int("12.9 fps"), 12);
  EXPECT_EQ(str2Int("-12.9"), -12);
  EXPECT_EQ(str2Int("1e30"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(str2Int("-1e30"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(str2Int(std::nullopt), 0);
}

TEST(FloatValue, WhiteSpaceIsSkippedLettersAreNot) {
  EXPECT_EQ(floatValue(" \t\n\u00A0-2.5x"), -2.5F);
  EXPECT_EQ(floatValue("x1"), 0.0F);
  EXPECT_EQ(floatValue("-0.7"), -0.7F);
}

TEST(IntegerValue, LeadingDigits) {
  EXPECT_EQ(integerValue(" 125 s"), 125);
  EXPECT_EQ(integerValue("-7"), -7);
  EXPECT_EQ(integerValue("+7.9"), 7);
  EXPECT_EQ(integerValue("x"), 0);
  EXPECT_EQ(integerValue("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(integerValue("9223372036854775808"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(integerValue("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(integerValue("-99999999999999999999"), std::numeric_limits<std::int64_t>::min());
}

TEST(TruncatedInteger, IsDefinedForEveryNumber) {
  EXPECT_EQ(truncatedInteger(-2.9), -2);
  EXPECT_EQ(truncatedInteger(std::nan("")), 0);
  EXPECT_EQ(truncatedInteger(1e300), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(truncatedInteger(-1e300), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(truncatedInteger(-9223372036854775808.0), std::numeric_limits<std::int64_t>::min());
}

}  // namespace
}  // namespace vistrelle
