// The pictures of the tool beside those of a linear decode.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <vector>

#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/cli/entry.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle {
namespace {

using platform::Bitmap;
using platform::Picture;
using testing::linearFrame;
using testing::runTool;
using testing::sampleMovie;
using testing::ScratchFolder;

/// Peak signal to noise ratio of two pictures in dB; 0 when they cannot be compared.
double psnr(const std::string& pathA, const std::string& pathB) {
  const auto a = Picture::load(pathA);
  const auto b = Picture::load(pathB);
  if (!a || !b || !a->bitmap() || !b->bitmap() || a->width() != b->width() || a->height() != b->height()) return 0;
  const Bitmap& first = *a->bitmap();
  const Bitmap& second = *b->bitmap();
  double sum = 0;
  for (int y = 0; y < first.height(); ++y) {
    for (int x = 0; x < first.width() * 4; ++x) {
      if (x % 4 == 3) continue;
      const double difference = first.row(y)[x] - second.row(y)[x];
      sum += difference * difference;
    }
  }
  const double mean = sum / (3.0 * first.width() * first.height());
  return mean == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / mean);
}

struct FrameCase {
  const char* movie;
  double seconds;
  int width;
  int height;
};

std::ostream& operator<<(std::ostream& stream, const FrameCase& value) {
  return stream << value.movie << " at " << value.seconds;
}

class Frames : public ::testing::TestWithParam<FrameCase> {};

TEST_P(Frames, AreThoseOfALinearDecode) {
  const FrameCase& sample = GetParam();
  ScratchFolder folder;
  const std::string movie = sampleMovie(sample.movie);
  // PNG, so that only the frame and the scaling count and not the loss of JPEG.
  const std::string out = folder.file("out.png");
  const auto run = runTool({"-i", movie, "-o", out, "-w", std::to_string(sample.width), "-h",
                            std::to_string(sample.height), "-tc", std::to_string(sample.seconds)});
  ASSERT_EQ(run.status, 0) << run.error;
  const std::string wanted = linearFrame(folder, movie, sample.seconds, sample.width, sample.height);
  EXPECT_GT(psnr(out, wanted), 35) << run.error;
}

INSTANTIATE_TEST_SUITE_P(
    Samples, Frames,
    ::testing::Values(FrameCase{"sample_with_increasing_timestamps_320w_240h_5s.mp4", 2.5, 320, 240},
                      FrameCase{"bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4", 0.5, 800, 640},
                      FrameCase{"nasa_13013.mp4", 7, 480, 270}, FrameCase{"sample.avi", 1.5, 320, 240},
                      FrameCase{"photo-jpeg.mov", 1, 320, 240}, FrameCase{"sample_with_chapters.mkv", 0.5, 320, 240},
                      FrameCase{"bbb_642x642_768kbps_30fps_vp9.webm", 0.5, 642, 642}));

TEST(Gaps, FramesThatAnAviFileLeavesOutKeepTheirTime) {
  ScratchFolder folder;
  const std::string movie = testing::gappyClip(folder);
  const std::string out = folder.makeFolder("out");
  // Half a second lies in the gap, the others behind it.
  const auto run = runTool({"-i", movie, "-o", out, "-w", "160", "-h", "120", "-tc", "1.5-0.5-1", "-v"});
  ASSERT_EQ(run.status, 0) << run.error;
  const std::vector<double> seconds{1.5, 0.5, 1};
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    const std::string wanted = linearFrame(folder, movie, seconds[i], 160, 120);
    EXPECT_GT(psnr(out + "/img0" + std::to_string(i) + ".jpg", wanted), 25) << seconds[i];
  }
  EXPECT_NE(run.error.find("Mirelund actualTime = 0.160\n"), std::string::npos) << run.error;
  EXPECT_NE(run.error.find("Mirelund actualTime = 1.480\n"), std::string::npos) << run.error;
}

/// Real waits, counted; sleeps are what must not happen.
class WatchingClock : public platform::Clock {
 public:
  explicit WatchingClock(std::shared_ptr<platform::Clock> next) : next_(std::move(next)) {}
  WallTime now() override { return next_->now(); }
  SteadyTime steady() override { return next_->steady(); }
  void sleep(std::chrono::microseconds duration) override {
    ++sleeps;
    next_->sleep(duration);
  }
  bool wait(const platform::Signal& signal, std::chrono::microseconds atMost) override {
    const bool set = next_->wait(signal, atMost);
    if (!set) ++fullWaits;
    return set;
  }
  int sleeps = 0;
  int fullWaits = 0;

 private:
  std::shared_ptr<platform::Clock> next_;
};

TEST(Waiting, RunOnALocalFileHasNoFixedSleep) {
  ScratchFolder folder;
  const auto clock = std::make_shared<WatchingClock>(platform::clock().get());
  const platform::Installed<platform::Clock> installed(platform::clock(), clock);
  const std::string movie = sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4");
  const std::string out = folder.file("out.jpg");
  const std::vector<const char*> arguments{"vistrelle", "-i",  movie.c_str(), "-o",
                                           out.c_str(), "-tc", "1-2-3",       nullptr};
  EXPECT_EQ(vistrelleMain(static_cast<int>(arguments.size()) - 1, arguments.data()), 0);
  EXPECT_EQ(clock->sleeps, 0);
  EXPECT_EQ(clock->fullWaits, 0);
  MYMOVIErelease();
}

}  // namespace
}  // namespace vistrelle
