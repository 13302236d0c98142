// Movies that fuzzing has found fault with; the inputs are in fuzz/corpus.

#include <gtest/gtest.h>

#include "tests/platform/media/movie_loading.h"

namespace vistrelle::testing {
namespace {

std::string findIn(const std::string& target, const std::string& name) {
  return std::string(VISTRELLE_SOURCE_DIR) + "/fuzz/corpus/" + target + "/" + name;
}

TEST(FuzzFinds, AnOggSoundThatEndsWithinItsLastBlockIsNotHoursLong) {
  const auto movie = loaded(findIn("passthrough", "sound.ogg"));
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 1U);
  // 8,820 samples, which end within the block before the last; that is counted whole.
  EXPECT_EQ(movie->tracks().front()->timeRange().duration, platform::MediaTime::make(8833, 22050));
  EXPECT_EQ(movie->duration(), platform::MediaTime::make(8833, 22050));
}

TEST(FuzzFinds, ColoursThatNobodyKnowsAreUnspecified) {
  const auto movie = loaded(findIn("movie", "unknown_colours.mkv"));
  ASSERT_TRUE(movie);
  const auto generator = movie->makeImageGenerator();
  ASSERT_TRUE(generator);
  const auto result = generator->copyFrame(platform::MediaTime::zero());
  ASSERT_TRUE(result.picture) << result.error;
  EXPECT_EQ(result.picture->planar()->colour.primaries, 2);
}

TEST(FuzzFinds, APictureBeyondAllTimesHasATimeAllTheSame) {
  const auto movie = loaded(findIn("movie", "beyond_all_times.ivf"));
  ASSERT_TRUE(movie);
  const auto generator = movie->makeImageGenerator();
  ASSERT_TRUE(generator);
  const auto result = generator->copyFrame(platform::MediaTime::positiveInfinity());
  EXPECT_TRUE(result.picture) << result.error;
  EXPECT_TRUE(result.actualTime.isValid());
}

}  // namespace
}  // namespace vistrelle::testing
