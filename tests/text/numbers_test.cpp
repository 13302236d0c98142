#include "vistrelle/text/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/recording_log.h"

namespace vistrelle {
namespace {

using platform::List;
using platform::Value;
using testing::RecordingLog;

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(SizeInUnit, Units) {
  EXPECT_EQ(sizeInUnit(1536, "k"), 1.5);
  EXPECT_EQ(sizeInUnit(1536, "K"), 1.5);
  EXPECT_EQ(sizeInUnit(1536, std::nullopt), 1.5);
  EXPECT_EQ(sizeInUnit(1536, "X"), 1536.0);
  EXPECT_EQ(sizeInUnit(1536, ""), 1536.0);
  EXPECT_EQ(sizeInUnit(1536, "KB"), 1536.0);
  EXPECT_EQ(sizeInUnit(3 * 1048576, "m"), 3.0);
  EXPECT_EQ(sizeInUnit(1, "M"), 1.0 / 1048576);
  EXPECT_EQ(sizeInUnit(5368709120, "G"), 5.0);
}

TEST(SizeInUnit, BelowOneComesBack) {
  EXPECT_EQ(sizeInUnit(0, "M"), 0.0);
  EXPECT_EQ(sizeInUnit(-2048, "k"), -2048.0);
}

TEST(MinutesOffsetStr, Forms) {
  EXPECT_EQ(minutesOffsetStr(5.5F), "-05.5'");
  EXPECT_EQ(minutesOffsetStr(10.0F), "-10.0'");
  EXPECT_EQ(minutesOffsetStr(9.96F), "-010.0'");  // padded before it is rounded
  EXPECT_EQ(minutesOffsetStr(0.0F), "");
  EXPECT_EQ(minutesOffsetStr(-1.0F), "");
  EXPECT_EQ(minutesOffsetStr(std::nanf("")), "");
}

TEST(DurationStr, Forms) {
  EXPECT_EQ(durationStr(3725), "1h02'05\"");
  EXPECT_EQ(durationStr(59), "0h00'59\"");
  EXPECT_EQ(durationStr(3599), "0h59'59\"");
  EXPECT_EQ(durationStr(36000), "10h00'00\"");
  EXPECT_EQ(durationStr(0), "0h00'00\"");
  EXPECT_EQ(durationStr(kLargest), "2562047788015215h30'07\"");
}

TEST(DurationStr, NegativeFollowsTheDivisions) {
  EXPECT_EQ(durationStr(-5), "0h00'0-5\"");
  EXPECT_EQ(durationStr(-7200), "-2h0-120'7200\"");
  EXPECT_EQ(durationStr(kSmallest), "-2562047788015215h0-153722867280912930'9223372036854773992\"");
}

TEST(SecondesStr2Int, Forms) {
  RecordingLog log(true);
  EXPECT_EQ(secondesStr2Int("1h02'05\""), 3725);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"secondesStr2Int     :-) 1h02'05\""});
  EXPECT_EQ(secondesStr2Int("125"), 125);
  EXPECT_EQ(secondesStr2Int("125 s"), 125);
  EXPECT_EQ(secondesStr2Int(125), 125);
  EXPECT_EQ(secondesStr2Int("x"), 0);
  EXPECT_EQ(secondesStr2Int(""), 0);
  EXPECT_EQ(secondesStr2Int(std::nullopt), 0);
  EXPECT_EQ(secondesStr2Int("2h30"), 2);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(SecondesStr2Int, SignsInAnotherOrder) {
  EXPECT_EQ(secondesStr2Int("1\"2'3h4"), 3600);  // nothing before ' and " after the h
  EXPECT_EQ(secondesStr2Int("1h2\"3'4"), 3720);  // nothing before " after the '
  EXPECT_EQ(secondesStr2Int("h'\""), 0);
}

TEST(SecondesStr2Int, BeyondEveryRange) {
  EXPECT_EQ(secondesStr2Int("99999999999999999999h00'00\""), kLargest);
  EXPECT_EQ(secondesStr2Int("-99999999999999999999h00'00\""), kSmallest);
  EXPECT_EQ(secondesStr2Int(std::string(1000000, '9')), kLargest);
}

TEST(SecondesStr2Int, ReadsWhatDurationStrWrites) {
  for (std::int64_t seconds = 0; seconds < 400000; seconds += 37) {
    ASSERT_EQ(secondesStr2Int(durationStr(seconds)), seconds);
  }
}

TEST(NbMultipleArrondi, Examples) {
  RecordingLog log(true);
  EXPECT_EQ(nbMultipleArrondi(1085, 16), 1088);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"arrondiInferieur     : 1072", "nbMultipleArrondi    : arrondir au dessus",
                                      "nbMultipleArrondi    :-) 1088"}));
  EXPECT_EQ(nbMultipleArrondi(1080, 16), 1088);
  log.clear();
  EXPECT_EQ(nbMultipleArrondi(1076, 16), 1072);
  EXPECT_TRUE(log.has("nbMultipleArrondi    : arrondir en-dessous"));
  log.clear();
  EXPECT_EQ(nbMultipleArrondi(1072, 16), 1072);
  EXPECT_TRUE(log.lines().empty());
}

TEST(NbMultipleArrondi, ResultIsLoggedAlways) {
  RecordingLog log(false);
  nbMultipleArrondi(7, 4);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"nbMultipleArrondi    :-) 8"});
}

TEST(NbMultipleArrondi, OddSteps) {
  EXPECT_EQ(nbMultipleArrondi(1, 3), 3);           // 3 / 2 is 1, not above the remainder 1
  EXPECT_EQ(nbMultipleArrondi(-1085, 16), -1072);  // the remainder -13 is below half
  EXPECT_EQ(nbMultipleArrondi(5, 0), 5);
  EXPECT_EQ(nbMultipleArrondi(kSmallest, -1), kSmallest);
  EXPECT_EQ(nbMultipleArrondi(kLargest, 1000), kLargest);
}

TEST(NbArrondi, Examples) {
  EXPECT_EQ(nbArrondi(0, 2.5F), 3.0F);
  EXPECT_EQ(nbArrondi(0, -2.7F), -2.0F);
  EXPECT_EQ(nbArrondi(0, -2.4F), -1.0F);
  EXPECT_EQ(nbArrondi(2, 3.14159F), 3.14F);
  EXPECT_EQ(nbArrondi(2, -3.14159F), -3.14F);
  EXPECT_EQ(nbArrondi(1, -0.25F), -0.3F);
  EXPECT_EQ(nbArrondi(-3, 1234.5F), 1235.0F);
  EXPECT_EQ(nbArrondi(-1, -2.7F), -3.0F);
}

TEST(NbArrondi, LogsWhenVerbose) {
  RecordingLog log(true);
  nbArrondi(2, 3.14159F);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"314.658997", "314", "nbArrondi            : 3.140000"}));
}

TEST(NbArrondi, WithoutDecimalsLogsTheMovedValue) {
  RecordingLog log(true);
  nbArrondi(0, -2.75F);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"-2.250000", "-2", "nbArrondi            : -2.000000"}));
}

TEST(Numbers, DetailsAreQuietWhenNotVerbose) {
  RecordingLog log(false);
  secondesStr2Int("1h02'05\"");
  nbArrondi(0, 2.5F);
  nbArrondi(2, 3.14159F);
  nbTrimmed(2, 3.149F);
  ASTID("a/b/c", "/", 0);
  ASTID("1234", "2", 0);
  versionStr2Float("1.2.3");
  nbMultipleArrondi(1072, 16);
  EXPECT_TRUE(log.lines().empty());
}

TEST(NbArrondi, ExtremesAreDefined) {
  EXPECT_TRUE(std::isnan(nbArrondi(2, std::nanf(""))));
  EXPECT_EQ(nbArrondi(0, kInfinity), kInfinity);
  EXPECT_EQ(nbArrondi(2, -kInfinity), -kInfinity);
  EXPECT_TRUE(std::isnan(nbArrondi(kLargest, 1.0F)));
  EXPECT_EQ(nbArrondi(kSmallest, 1.5F), 2.0F);
  EXPECT_EQ(nbArrondi(0, 1e30F), 1e30F);
}

TEST(NbTrimmed, Examples) {
  RecordingLog log(true);
  EXPECT_EQ(nbTrimmed(0, 2.9F), 2.0F);
  EXPECT_EQ(nbTrimmed(0, -2.9F), -2.0F);
  EXPECT_EQ(nbTrimmed(2, 3.149F), 3.14F);
  EXPECT_EQ(nbTrimmed(2, -3.149F), -3.14F);
  EXPECT_EQ(nbTrimmed(-2, 3.9F), 3.0F);
  EXPECT_TRUE(log.has("nbTrimmed           : 3.140000"));
  EXPECT_TRUE(std::isnan(nbTrimmed(99, 1.0F)));
}

TEST(Float2FractionStr, Examples) {
  RecordingLog log(false);
  EXPECT_EQ(float2FractionStr(1.34F), "4:3");
  EXPECT_EQ(float2FractionStr(1.7778F), "16:9");
  EXPECT_EQ(float2FractionStr(0.05F), "1:1");
  EXPECT_EQ(float2FractionStr(1.85F), "37:20");
  EXPECT_EQ(float2FractionStr(2.39F), "239:100");
  EXPECT_EQ(float2FractionStr(1.0F), "1:1");
  EXPECT_EQ(float2FractionStr(-0.09F), "1:1");
  EXPECT_EQ(float2FractionStr(-1.5F), "-3:2");
  // The named ratios say nothing.
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"float2FractionStr : 37:20 (<-1.850)", "float2FractionStr : 239:100 (<-2.390)",
                                      "float2FractionStr : -3:2 (<--1.500)"}));
}

TEST(Float2FractionStr, ExtremesAreDefined) {
  EXPECT_EQ(float2FractionStr(std::nanf("")), "0:1");
  EXPECT_EQ(float2FractionStr(kInfinity), "9223372036854775807:1000");
}

TEST(FractionStr2Float, Examples) {
  EXPECT_EQ(fractionStr2Float("16:9"), 16.0F / 9.0F);
  EXPECT_EQ(fractionStr2Float("0:9"), 1.0F);
  EXPECT_EQ(fractionStr2Float(std::nullopt), 1.0F);
  EXPECT_EQ(fractionStr2Float("1.85"), 1.85F);
  EXPECT_EQ(fractionStr2Float("word"), 1.0F);
  EXPECT_EQ(fractionStr2Float("0.05"), 1.0F);
  EXPECT_EQ(fractionStr2Float(""), 1.0F);
  EXPECT_EQ(fractionStr2Float("4:3:2"), 4.0F / 3.0F);
  EXPECT_EQ(fractionStr2Float("-16:9"), -16.0F / 9.0F);
  EXPECT_EQ(fractionStr2Float(" 16 : 9 "), 16.0F / 9.0F);
}

TEST(FractionStr2Float, DivisionByZeroCountsAsNothing) {
  for (const char* text : {"16:0", "0:0", ":", "16:", ":9", "x:y", "1e39:1e39"}) {
    EXPECT_EQ(fractionStr2Float(text), 1.0F) << text;
  }
}

TEST(FractionStr2Float, Logs) {
  RecordingLog quiet(false);
  fractionStr2Float("16:9");
  EXPECT_TRUE(quiet.lines().empty());
  fractionStr2Float("1.5");
  EXPECT_EQ(quiet.lines(), std::vector<std::string>{"fractionStr2Float :-/ 1.500 (<-1.5)"});
  RecordingLog verbose(true);
  fractionStr2Float("16:9");
  EXPECT_EQ(verbose.lines(), std::vector<std::string>{"fractionStr2Float :-) 1.778 (<-16:9)"});
}

TEST(Astid, Fields) {
  EXPECT_EQ(ASTID("a/b/c", "/", 0), "a");
  EXPECT_EQ(ASTID("a/b/c", "/", 2), "c");
  EXPECT_EQ(ASTID("a/b/c", "/", 666), "b");
  EXPECT_EQ(ASTID("a/b/c", "/", 777), "c");
  EXPECT_EQ(ASTID("a/b/c", "/", 5), "a/b/c");
  EXPECT_EQ(ASTID("a/b/c", "/", 3), "a/b/c");
  EXPECT_EQ(ASTID("a/b/c", "/", -1), "a/b/c");
  EXPECT_EQ(ASTID("a//c", "/", 1), "");
  EXPECT_EQ(ASTID("a, b", ", ", 1), "b");
  EXPECT_EQ(ASTID("a/b/c", "-", 0), "a/b/c");
  EXPECT_EQ(ASTID("a/b/c", "", 0), "a/b/c");
}

TEST(Astid, AbsentArguments) {
  EXPECT_EQ(ASTID(std::nullopt, "/", 0), "");
  EXPECT_EQ(ASTID("a/b", std::nullopt, 0), "a/b");
}

TEST(Astid, NumbersComeBack) {
  RecordingLog log(true);
  EXPECT_EQ(ASTID("1234", "2", 0), "1234");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"ASTID               - begin : (2) 1234",
                                                   "ASTID               - NSInteger detected ;-)"}));
  log.clear();
  EXPECT_EQ(ASTID("1.500000", ".", 0), "1.500000");
  EXPECT_TRUE(log.has("ASTID               - float detected ;-)"));
  EXPECT_EQ(ASTID("01234", "2", 0), "01");
  EXPECT_EQ(ASTID("1.5", ".", 1), "5");
  EXPECT_EQ(ASTID("-12", "1", 1), "-12");
}

TEST(Astid, MillionsOfFields) {
  EXPECT_EQ(ASTID(std::string(3000000, ','), ",", 666), "");
}

TEST(VersionStr2Float, Examples) {
  RecordingLog log(true);
  EXPECT_EQ(versionStr2Float("1.2.3"), 1.0203F);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"returnedFloat       : 1.020300"});
  EXPECT_EQ(versionStr2Float("10"), 10.0F);
  EXPECT_EQ(versionStr2Float("10.15"), 10.15F);
  EXPECT_EQ(versionStr2Float("1.2.3.9"), 1.0203F);
  EXPECT_EQ(versionStr2Float(""), 0.0F);
  EXPECT_EQ(versionStr2Float("x.5"), 0.05F);
  EXPECT_EQ(versionStr2Float(std::nullopt), 0.0F);
}

TEST(VersionStr2Float, OrdersVersions) {
  EXPECT_LT(versionStr2Float("1.2.3"), versionStr2Float("1.2.4"));
  EXPECT_LT(versionStr2Float("1.9.99"), versionStr2Float("1.10.0"));
  EXPECT_LT(versionStr2Float("9.99.99"), versionStr2Float("10.0.0"));
}

TEST(SortedNumbers, NumbersAndTexts) {
  RecordingLog log(false);
  EXPECT_EQ(sortedNumbers(List{3, "1.5 s", 2.25, "x"}), (List{0.0F, 1.5F, 2.25, 3}));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"3", "1.5 s", "2.25", "x"}));
  EXPECT_EQ(sortedNumbers(std::nullopt), std::nullopt);
  EXPECT_EQ(sortedNumbers(List{}), std::nullopt);
}

TEST(SortedNumbers, ExtremesAreOrdered) {
  const auto sorted = sortedNumbers(
      List{kLargest, kLargest - 1, kSmallest, std::nan(""), -1e30, std::numeric_limits<std::uint64_t>::max(), true});
  ASSERT_TRUE(sorted);
  EXPECT_TRUE(std::isnan(*(*sorted)[0].number()));
  EXPECT_EQ(List(sorted->begin() + 1, sorted->end()),
            (List{-1e30, kSmallest, true, kLargest - 1, kLargest, std::numeric_limits<std::uint64_t>::max()}));
}

TEST(SecondsToTimecodeStr, Examples) {
  EXPECT_EQ(secondsToTimecodeStr(3725.5F, 3, false), "1:02:05.500");
  EXPECT_EQ(secondsToTimecodeStr(3725.5F, 3, true), "01:02:05.500");
  EXPECT_EQ(secondsToTimecodeStr(59.05F, 2, false), "0:00:59.04");
  EXPECT_EQ(secondsToTimecodeStr(59.05F, 9, false), "0:00:59.049");
  EXPECT_EQ(secondsToTimecodeStr(3725.5F, 0, true), "1:02:05");
  EXPECT_EQ(secondsToTimecodeStr(36000.25F, 1, true), "10:00:00.2");
  EXPECT_EQ(secondsToTimecodeStr(0.0F, 3, false), "0:00:00.000");
  EXPECT_EQ(secondsToTimecodeStr(0.0078125F, 3, false), "0:00:00.007");
  EXPECT_EQ(secondsToTimecodeStr(0.015625F, 3, false), "0:00:00.015");
}

TEST(SecondsToTimecodeStr, NegativeFollowsTheDivisions) {
  EXPECT_EQ(secondsToTimecodeStr(-5.5F, 3, false), "0:00:0-5.500");
  EXPECT_EQ(secondsToTimecodeStr(-3725.0F, 0, false), "-1:0-2:0-5");
  EXPECT_EQ(secondsToTimecodeStr(-3725.0F, 1, true), "0-1:0-2:0-5.0");
  EXPECT_EQ(secondsToTimecodeStr(5.5F, -2, false), "0:00:05.0");
}

TEST(SecondsToTimecodeStr, ExtremesAreDefined) {
  EXPECT_EQ(secondsToTimecodeStr(std::nanf(""), 3, false), "0:00:00.000");
  EXPECT_EQ(secondsToTimecodeStr(kInfinity, 3, false), "596523:14:07.000");
  EXPECT_EQ(secondsToTimecodeStr(1e30F, 0, false), "596523:14:07");
  EXPECT_EQ(secondsToTimecodeStr(-kInfinity, 0, false), "-596523:0-14:0-8");
}

TEST(SecondsListToTimecodes, ZeroIsPutFirst) {
  EXPECT_EQ(secondsListToTimecodes(List{1.5, 62}),
            (std::vector<std::string>{"0:00:00.000", "0:00:01.500", "0:01:02.000"}));
  EXPECT_EQ(secondsListToTimecodes(List{0.5F, "62.25"}), (std::vector<std::string>{"0:00:00.500", "0:01:02.250"}));
  EXPECT_EQ(secondsListToTimecodes(List{"2"}), (std::vector<std::string>{"0:00:00.000", "0:00:02.000"}));
  EXPECT_EQ(secondsListToTimecodes(List{}), std::nullopt);
  EXPECT_EQ(secondsListToTimecodes(std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace vistrelle
