#include "vistrelle/platform/media/media_time.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

void expectExactly(const MediaTime& time, std::int64_t value, std::int32_t scale, bool rounded = false) {
  EXPECT_EQ(time.value, value);
  EXPECT_EQ(time.scale, scale);
  EXPECT_TRUE(time.isNumeric());
  EXPECT_EQ((time.flags & MediaTime::kHasBeenRounded) != 0, rounded);
}

TEST(MediaTime, DefaultIsInvalidAndScaleMustBePositive) {
  EXPECT_FALSE(MediaTime().isValid());
  EXPECT_FALSE(MediaTime::make(1, 0).isValid());
  EXPECT_FALSE(MediaTime::make(1, -5).isValid());
  EXPECT_TRUE(std::isnan(MediaTime::invalid().seconds()));
  EXPECT_TRUE(std::isnan(MediaTime::indefinite().seconds()));
  EXPECT_EQ(MediaTime::negativeInfinity().seconds(), -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(MediaTime::indefinite().isValid());
  EXPECT_FALSE(MediaTime::indefinite().isNumeric());
}

TEST(MediaTime, FromSecondsTruncatesTowardZero) {
  expectExactly(MediaTime::makeWithSeconds(1.25, 4), 5, 4);
  expectExactly(MediaTime::makeWithSeconds(1.9, 2), 3, 2, true);
  expectExactly(MediaTime::makeWithSeconds(-1.9, 2), -3, 2, true);
  expectExactly(MediaTime::makeWithSeconds(0.999, 1), 0, 1, true);
}

TEST(MediaTime, FromSecondsBeyondSixtyFourBitsIsInfinite) {
  EXPECT_EQ(MediaTime::makeWithSeconds(1e19, 1), MediaTime::positiveInfinity());
  EXPECT_EQ(MediaTime::makeWithSeconds(-1e19, 1), MediaTime::negativeInfinity());
  EXPECT_EQ(MediaTime::makeWithSeconds(9223372036854775808.0, 1), MediaTime::positiveInfinity());
  expectExactly(MediaTime::makeWithSeconds(-9223372036854775808.0, 1), kMin, 1);
  EXPECT_EQ(MediaTime::makeWithSeconds(INFINITY, 3), MediaTime::positiveInfinity());
  EXPECT_EQ(MediaTime::makeWithSeconds(NAN, 3), MediaTime::indefinite());
  EXPECT_FALSE(MediaTime::makeWithSeconds(1, 0).isValid());
}

TEST(MediaTime, ConversionRoundsHalvesAwayFromZero) {
  expectExactly(MediaTime::make(3, 2).convertedTo(1), 2, 1, true);
  expectExactly(MediaTime::make(-3, 2).convertedTo(1), -2, 1, true);
  expectExactly(MediaTime::make(4, 3).convertedTo(1), 1, 1, true);
  expectExactly(MediaTime::make(1, 3).convertedTo(600), 200, 600);
  expectExactly(MediaTime::make(kMax, 90000).convertedTo(90000), kMax, 90000);
  EXPECT_EQ(MediaTime::make(kMax, 1).convertedTo(2), MediaTime::positiveInfinity());
  EXPECT_EQ(MediaTime::make(kMin, 1).convertedTo(2), MediaTime::negativeInfinity());
  EXPECT_EQ(MediaTime::indefinite().convertedTo(2), MediaTime::indefinite());
  EXPECT_FALSE(MediaTime::make(1, 2).convertedTo(0).isValid());
  // Once rounded, always flagged.
  EXPECT_TRUE(MediaTime::make(3, 2).convertedTo(1).convertedTo(2).flags & MediaTime::kHasBeenRounded);
}

TEST(MediaTime, ComparesExactlyWhereDoublesCannot) {
  EXPECT_LT(MediaTime::make(kMax - 1, 90000), MediaTime::make(kMax, 90000));
  EXPECT_EQ(MediaTime::make(1, 3), MediaTime::make(700000000, 2100000000));
  EXPECT_GT(MediaTime::make(kMax, 2147483646), MediaTime::make(kMax, 2147483647));
  EXPECT_LT(MediaTime::make(kMin, 1), MediaTime::make(kMax, 1));
}

TEST(MediaTime, OrderOfSpecialTimes) {
  const MediaTime order[] = {MediaTime::negativeInfinity(), MediaTime::make(kMin, 1), MediaTime::make(kMax, 1),
                             MediaTime::positiveInfinity(), MediaTime::indefinite(),  MediaTime::invalid()};
  for (std::size_t i = 0; i < std::size(order); ++i) {
    for (std::size_t j = 0; j < std::size(order); ++j) EXPECT_EQ(compare(order[i], order[j]), i <=> j) << i << " " << j;
  }
}

TEST(MediaTime, EpochComesBeforeValue) {
  MediaTime later = MediaTime::make(1, 1);
  later.epoch = 1;
  EXPECT_LT(MediaTime::make(100, 1), later);
  EXPECT_EQ((later - later).epoch, 0);
}

TEST(MediaTime, SumsOverTheLeastCommonScale) {
  expectExactly(MediaTime::make(1, 2) + MediaTime::make(1, 3), 5, 6);
  expectExactly(MediaTime::make(1, 2) - MediaTime::make(1, 3), 1, 6);
  expectExactly(MediaTime::make(1, 600) + MediaTime::make(1, 600), 2, 600);
  expectExactly(MediaTime::make(1001, 30000) - MediaTime::make(1, 90000), 3002, 90000);
}

TEST(MediaTime, SumsWhoseCommonScaleIsTooLargeAreRounded) {
  const MediaTime sum = MediaTime::make(1, 2147483647) + MediaTime::make(1, 2147483646);
  expectExactly(sum, 2, 2147483647, true);
  expectExactly(MediaTime::make(2147483647, 2147483647) + MediaTime::make(2147483646, 2147483646), 2 * 2147483647LL,
                2147483647);
}

TEST(MediaTime, SumsBeyondSixtyFourBitsAreInfinite) {
  EXPECT_EQ(MediaTime::make(kMax, 1) + MediaTime::make(1, 1), MediaTime::positiveInfinity());
  EXPECT_EQ(MediaTime::make(kMin, 1) - MediaTime::make(1, 1), MediaTime::negativeInfinity());
  expectExactly(MediaTime::make(kMax, 1) - MediaTime::make(kMax, 1), 0, 1);
}

TEST(MediaTime, SumsOfSpecialTimes) {
  const MediaTime infinite = MediaTime::positiveInfinity();
  EXPECT_EQ(infinite + MediaTime::make(1, 1), infinite);
  EXPECT_EQ(MediaTime::make(1, 1) - infinite, MediaTime::negativeInfinity());
  EXPECT_EQ(infinite + infinite, infinite);
  EXPECT_FALSE((infinite - infinite).isValid());
  EXPECT_EQ(MediaTime::indefinite() + infinite, MediaTime::indefinite());
  EXPECT_FALSE((MediaTime::invalid() + MediaTime::indefinite()).isValid());
}

TEST(MediaTime, Describes) {
  EXPECT_EQ(MediaTime::make(3, 2).description(), "{3/2 = 1.500}");
  EXPECT_EQ(MediaTime::invalid().description(), "{INVALID}");
  EXPECT_EQ(MediaTime::indefinite().description(), "{INDEFINITE}");
  EXPECT_EQ(MediaTime::positiveInfinity().description(), "{+INFINITY}");
  EXPECT_EQ(MediaTime::negativeInfinity().description(), "{-INFINITY}");
  EXPECT_EQ((TimeRange{MediaTime::make(0, 3), MediaTime::make(32, 3)}).description(),
            "{{0/3 = 0.000}, {32/3 = 10.667}}");
}

TEST(TimeRange, IsHalfOpen) {
  const TimeRange range{MediaTime::make(1, 1), MediaTime::make(1, 2)};
  EXPECT_TRUE(range.contains(MediaTime::make(1, 1)));
  EXPECT_TRUE(range.contains(MediaTime::make(149, 100)));
  EXPECT_FALSE(range.contains(MediaTime::make(3, 2)));
  EXPECT_EQ(range.end(), MediaTime::make(3, 2));
  EXPECT_FALSE(TimeRange::invalid().isValid());
  EXPECT_FALSE((TimeRange{MediaTime::zero(), MediaTime::make(-1, 1)}).isValid());
}

}  // namespace
}  // namespace vistrelle::platform
