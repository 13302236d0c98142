#include "vistrelle/platform/media/export/passthrough.h"

#include <gtest/gtest.h>

#include "tests/platform/export/passthrough_fixture.h"

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;

struct Coding {
  const char* name;  // of the file
  std::vector<std::string> video;
};

std::ostream& operator<<(std::ostream& out, const Coding& coding) {
  return out << coding.name;
}

constexpr int kFrames = 100;  // at 25 a second, 4 seconds

std::string movieOf(const Coding& coding) {
  return clip(coding.name, {numberedPictures(kFrames), coding.video});
}

class Passthrough : public ::testing::TestWithParam<Coding> {
 protected:
  void SetUp() override {
    movie_ = loaded(movieOf(GetParam()));
    ASSERT_TRUE(movie_);
    composition_ = whole(movie_);
  }
  void expectWritten(const std::vector<Stretch>& stretches) {
    const Written written = writeTo(*composition_, folder_.file("written.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    EXPECT_EQ(written.progress, 1.0);
    double end = 0;
    for (const Stretch& stretch : stretches) end += stretch.lasting > 0 ? stretch.lasting : stretch.length;
    expectShows(written.path, shownBy(stretches, 25), end);
  }

  ScratchFolder folder_;
  std::shared_ptr<platform::Asset> movie_;
  std::shared_ptr<Composition> composition_;
};

TEST_P(Passthrough, whole) {
  expectWritten({{0, 4}});
}

TEST_P(Passthrough, aMovieThatIsNoComposition) {
  const Written written = writeTo(*movie_, folder_.file("plain.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  expectShows(written.path, shownBy({{0, 4}}, 25), 4);
}

TEST_P(Passthrough, headCutOnAFrame) {
  composition_->removeTimeRange(range(0, 12, 10));
  expectWritten({{1.2, 2.8}});
}

TEST_P(Passthrough, headCutWithinAFrame) {
  composition_->removeTimeRange(range(0, 13, 10));
  expectWritten({{1.3, 2.7}});
}

TEST_P(Passthrough, tailCut) {
  composition_->removeTimeRange(range(23, 100, 10));
  expectWritten({{0, 2.3}});
}

TEST_P(Passthrough, bothEnds) {
  composition_->removeTimeRange(range(31, 100, 10));
  composition_->removeTimeRange(range(0, 9, 10));
  expectWritten({{0.9, 2.2}});
}

TEST_P(Passthrough, middleOut) {
  composition_->removeTimeRange(range(110, 150, 100));
  expectWritten({{0, 1.1}, {2.6, 1.4}});
}

TEST_P(Passthrough, holeWithinAGroupOfPictures) {
  composition_->removeTimeRange(range(60, 12, 100));
  composition_->removeTimeRange(range(100, 4, 100));
  expectWritten({{0, 0.6}, {0.72, 0.4}, {1.16, 2.84}});
}

TEST_P(Passthrough, repeated) {
  for (int pass = 1; pass < 3; ++pass) {
    ASSERT_TRUE(composition_->insertTimeRange({MediaTime::zero(), movie_->duration()}, movie_, composition_->duration(),
                                              nullptr));
  }
  expectWritten({{0, 4}, {0, 4}, {0, 4}});
}

TEST_P(Passthrough, piecesInAnyOrder) {
  const auto mixed = Composition::make();
  ASSERT_TRUE(mixed->insertTimeRange(range(210, 70, 100), movie_, MediaTime::zero(), nullptr));
  ASSERT_TRUE(mixed->insertTimeRange(range(33, 47, 100), movie_, mixed->duration(), nullptr));
  ASSERT_TRUE(mixed->insertTimeRange(range(215, 41, 100), movie_, mixed->duration(), nullptr));
  composition_ = mixed;
  expectWritten({{2.1, 0.7}, {0.33, 0.47}, {2.15, 0.41}});
}

// In Motion JPEG black stands there for libav, which the tests of gaps look at.
TEST_P(Passthrough, emptyStretch) {
  if (std::string(GetParam().name).find("mjpeg") == 0) return;
  const auto gap = Composition::make();
  ASSERT_TRUE(gap->insertTimeRange(range(0, 1), movie_, MediaTime::zero(), nullptr));
  ASSERT_TRUE(gap->insertTimeRange(range(21, 10, 10), movie_, at(2), nullptr));
  composition_ = gap;
  expectWritten({{0, 1}, {0, 0, 1, -1}, {2.1, 1}});
}

TEST_P(Passthrough, emptyBeginning) {
  const auto late = Composition::make();
  ASSERT_TRUE(late->insertTimeRange(range(5, 20, 10), movie_, at(1, 2), nullptr));
  composition_ = late;
  expectWritten({{0, 0, 0.5, -1}, {0.5, 2}});
}

TEST_P(Passthrough, twiceAsLong) {
  composition_->scaleTimeRange({MediaTime::zero(), composition_->duration()}, at(8));
  expectWritten({{0, 4, 8}});
}

TEST_P(Passthrough, aPartTwiceAsLong) {
  composition_->scaleTimeRange(range(1, 1), at(2));
  expectWritten({{0, 1}, {1, 1, 2}, {2, 2}});
}

const std::vector<std::string> kX264{"-c:v", "libx264", "-preset", "veryfast", "-g", "12", "-bf", "2"};

std::vector<std::string> x264(const std::vector<std::string>& more) {
  std::vector<std::string> options = kX264;
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

std::vector<std::string> hevc(const std::vector<std::string>& more) {
  std::vector<std::string> options{"-c:v",      "libx265",      "-preset",
                                   "ultrafast", "-x265-params", "log-level=error:keyint=12:bframes=3:open-gop=1"};
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

std::string codingName(const ::testing::TestParamInfo<Coding>& tested) {
  std::string name = tested.param.name;
  std::ranges::replace(name, '.', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(
    otherContainers, Passthrough,
    ::testing::Values(Coding{"h264.mkv", x264({})}, Coding{"h264.ts", x264({})}, Coding{"h264.avi", x264({})},
                      Coding{"h264.flv", x264({})}, Coding{"hevc.mkv", hevc({})}, Coding{"hevc.ts", hevc({})},
                      Coding{"mpeg4.avi", {"-c:v", "mpeg4", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"mpeg4.mkv", {"-c:v", "mpeg4", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"mpeg2.ts", {"-c:v", "mpeg2video", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"mjpeg.avi", {"-c:v", "mjpeg", "-q:v", "3"}},
                      Coding{"prores.mkv", {"-c:v", "prores_ks", "-profile:v", "0"}}),
    codingName);

INSTANTIATE_TEST_SUITE_P(
    movFamily, Passthrough,
    ::testing::Values(Coding{"closed.mov", x264({})},
                      Coding{"pyramid.mp4", x264({"-bf", "3", "-x264-params", "b-pyramid=normal"})},
                      Coding{"open.mov", x264({"-x264-params", "open-gop=1:scenecut=0:b-adapt=0", "-bf", "3"})},
                      Coding{"fragments.mp4", x264({"-movflags", "frag_keyframe+delay_moov"})},
                      Coding{"plain.mp4", {"-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", "25"}},
                      Coding{"hevc.mp4", hevc({"-tag:v", "hvc1"})},
                      Coding{"mpeg4.mov", {"-c:v", "mpeg4", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"prores.mov", {"-c:v", "prores_ks", "-profile:v", "0"}},
                      Coding{"mjpeg.mov", {"-c:v", "mjpeg", "-q:v", "3"}}),
    codingName);

}  // namespace
}  // namespace vistrelle::testing
