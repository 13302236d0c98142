#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

#include <gtest/gtest.h>

#include <limits>

namespace vistrelle::platform {
namespace {

TEST(FrameTimeline, FineTicksAreRoundedToTheNearest) {
  const FrameTimeline timeline = FrameTimeline::byTicks({1, 1000}, 0);
  // A third of a second lies between ticks 333 and 334; two thirds are nearer to 667.
  EXPECT_EQ(timeline.placeOf(MediaTime::make(1, 3)), 333);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(2, 3)), 667);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(-1, 3)), -333);
}

TEST(FrameTimeline, CoarseTicksAreRoundedDown) {
  const FrameTimeline timeline = FrameTimeline::byTicks({1, 25}, 0);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(79, 1000)), 1);  // 0.079 s is nearer to 0.08, and before it
  EXPECT_EQ(timeline.placeOf(MediaTime::make(80, 1000)), 2);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(-1, 1000)), -1);
}

TEST(FrameTimeline, ZeroIsMoved) {
  const FrameTimeline timeline = FrameTimeline::byTicks({1, 90000}, 126000);
  EXPECT_EQ(timeline.placeOf(MediaTime::zero()), 126000);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(1, 2)), 171000);
  EXPECT_EQ(timeline.timeOf(132000), MediaTime::make(6000, 90000));
  EXPECT_EQ(timeline.timeOf(120000), MediaTime::make(-6000, 90000));
}

TEST(FrameTimeline, NtscFramesAreCountedExactly) {
  const FrameTimeline timeline = FrameTimeline::byCount({24000, 1001}, MediaTime::zero());
  EXPECT_EQ(timeline.placeOf(MediaTime::make(1, 2)), 11);  // frame 12 comes at 0.5005 s
  EXPECT_EQ(timeline.placeOf(MediaTime::make(1001, 2000)), 12);
  EXPECT_EQ(timeline.timeOf(24000), MediaTime::make(1001, 1));
}

TEST(FrameTimeline, CountingBeginsAtTheFirstFrame) {
  const FrameTimeline timeline = FrameTimeline::byCount({25, 1}, MediaTime::make(1, 10));
  EXPECT_EQ(timeline.placeOf(MediaTime::make(1, 10)), 0);
  EXPECT_EQ(timeline.placeOf(MediaTime::zero()), -3);
  EXPECT_EQ(timeline.timeOf(5), MediaTime::make(3, 10));
}

TEST(FrameTimeline, InfinitiesAreTheEndsAndOtherTimesNone) {
  const FrameTimeline timeline = FrameTimeline::byTicks({1, 1000}, 100);
  EXPECT_EQ(timeline.placeOf(MediaTime::positiveInfinity()), std::numeric_limits<std::int64_t>::max());
  EXPECT_LT(timeline.placeOf(MediaTime::negativeInfinity()), -(std::int64_t{1} << 62));
  EXPECT_EQ(timeline.placeOf(MediaTime::invalid()), std::nullopt);
  EXPECT_EQ(timeline.placeOf(MediaTime::indefinite()), std::nullopt);
}

TEST(FrameTimeline, TimesBeyondTheRangeStayAtItsEnds) {
  const FrameTimeline timeline = FrameTimeline::byTicks({1, 90000}, 100);
  EXPECT_EQ(timeline.placeOf(MediaTime::make(std::numeric_limits<std::int64_t>::max(), 1)),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_LT(timeline.placeOf(MediaTime::make(std::numeric_limits<std::int64_t>::min() + 2, 1)),
            -(std::int64_t{1} << 62));
}

TEST(FrameTimeline, TimesThatNoNumberHoldsAreInfinite) {
  const FrameTimeline byTicks = FrameTimeline::byTicks({32768, 5}, 0);
  EXPECT_EQ(byTicks.timeOf(std::int64_t{1} << 60), MediaTime::positiveInfinity());
  EXPECT_EQ(byTicks.timeOf(-(std::int64_t{1} << 60)), MediaTime::negativeInfinity());
}

TEST(FrameTimeline, RatesAreTheFractionsThatWereMeant) {
  const auto expectRate = [](double rate, int num, int den) {
    EXPECT_EQ(rateFromFloat(rate).num, num) << rate;
    EXPECT_EQ(rateFromFloat(rate).den, den) << rate;
  };
  expectRate(25, 25, 1);
  expectRate(23.976025F, 24000, 1001);
  expectRate(29.97003F, 30000, 1001);
  expectRate(59.94006F, 60000, 1001);
  expectRate(12.5, 25, 2);
  expectRate(0, 0, 1);
  expectRate(-1, 0, 1);
  expectRate(std::numeric_limits<double>::quiet_NaN(), 0, 1);
  expectRate(std::numeric_limits<double>::infinity(), 0, 1);
}

}  // namespace
}  // namespace vistrelle::platform
