// The three aperture modes ask for one frame three times; it is decoded once.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/support/clips.h"
#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

namespace vistrelle {
namespace {

using platform::FrameGenerator;
using platform::FrameStatistics;
using platform::ImageGenerator;
using platform::MediaTime;
using testing::ForwardingAsset;
using testing::ForwardingGenerator;

/// Tells what a generator had done when it was destroyed.
class WatchedGenerator : public ForwardingGenerator {
 public:
  WatchedGenerator(std::unique_ptr<ImageGenerator>&& next, std::vector<FrameStatistics>& seen)
      : WatchedGenerator(dynamic_cast<FrameGenerator&>(*next), std::move(next), seen) {}
  ~WatchedGenerator() override { seen_.push_back(watched_.statistics()); }

 private:
  WatchedGenerator(FrameGenerator& watched, std::unique_ptr<ImageGenerator>&& next, std::vector<FrameStatistics>& seen)
      : ForwardingGenerator(std::move(next)), watched_(watched), seen_(seen) {}

  FrameGenerator& watched_;
  std::vector<FrameStatistics>& seen_;
};

class WatchedAsset : public ForwardingAsset {
 public:
  explicit WatchedAsset(std::shared_ptr<platform::Asset> next) : ForwardingAsset(next), next_(std::move(next)) {}
  std::unique_ptr<ImageGenerator> makeImageGenerator() override {
    return std::make_unique<WatchedGenerator>(next_->makeImageGenerator(), seen);
  }
  std::vector<FrameStatistics> seen;

 private:
  std::shared_ptr<platform::Asset> next_;
};

class DecodingCost : public ::testing::TestWithParam<const char*> {
 protected:
  DecodingCost() {
    path = testing::sampleMovie(GetParam());
    movie = std::make_shared<WatchedAsset>(platform::FfmpegMediaLibrary().openAsset(path, {}));
    library->movies[path] = movie;
  }
  ~DecodingCost() override { MYMOVIErelease(); }

  testing::RecordingLog record;
  std::string path;
  std::shared_ptr<WatchedAsset> movie;
  std::shared_ptr<testing::FakeLibrary> library = std::make_shared<testing::FakeLibrary>();
  platform::Installed<platform::MediaLibrary> installed{platform::mediaLibrary(), library};
};

TEST_P(DecodingCost, ThreeAskingsCostWhatOneDoes) {
  ASSERT_TRUE(movieLoad(path));
  const auto askOnce = [this] {
    const auto generator = movie->makeImageGenerator();
    generator->announce(std::vector{MediaTime::zero()});
    return generator->copyFrame(MediaTime::zero()).picture != nullptr;
  };
  // The first reading goes on with the one that the facts came from, which may cost a packet more or less.
  ASSERT_TRUE(askOnce());
  ASSERT_TRUE(movieSize(path).has_value());
  movieApertureSize(movie);
  ASSERT_TRUE(askOnce());
  ASSERT_EQ(movie->seen.size(), 4U);
  const FrameStatistics& once = movie->seen[3];
  EXPECT_GE(once.framesDecoded, 1);
  for (const std::size_t i : {1U, 2U}) {
    EXPECT_EQ(movie->seen[i].framesDecoded, once.framesDecoded);
    EXPECT_EQ(movie->seen[i].packetsRead, once.packetsRead);
    EXPECT_EQ(movie->seen[i].seeks, once.seeks);
  }
}

INSTANTIATE_TEST_SUITE_P(Samples, DecodingCost,
                         ::testing::Values("prog_8s.mp4", "xdcam-hd-1080i60.mov", "sample_h264.ts", "sample.avi",
                                           "weird_aspect.small.mpg", "iibbibb_editlist_videoonly.mp4"));

}  // namespace
}  // namespace vistrelle
