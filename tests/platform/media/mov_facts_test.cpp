#include "vistrelle/platform/media/ffmpeg/mov_facts.h"

#include <gtest/gtest.h>

#include <limits>

namespace vistrelle::platform {
namespace {

TEST(MovFacts, TheLowestPresentationTimeIsDefined) {
  mov::Track track;
  track.timeScale = 600;
  track.samples.count = 1;
  track.samples.firstPresentation = std::numeric_limits<std::int64_t>::min();
  track.samples.endOfPresentation = 0;
  const TimeRange range = rangeOf(track, mov::MovieHeader());
  EXPECT_EQ(range.start, MediaTime::make(-std::numeric_limits<std::int64_t>::max(), 600));
}

}  // namespace
}  // namespace vistrelle::platform
