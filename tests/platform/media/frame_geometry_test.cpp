#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace vistrelle::platform {
namespace {

constexpr std::int32_t kOne = 1 << 16;

Orientation turn(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d) {
  return orientationOfMatrix(std::array<std::int32_t, 9>{a, b, 0, c, d, 0, 0, 0, 1 << 30});
}

Orientation expected(bool mirrored, int turns) {
  return {mirrored, turns};
}

TEST(FrameGeometry, AllEightOrientations) {
  EXPECT_EQ(turn(kOne, 0, 0, kOne), expected(false, 0));
  EXPECT_EQ(turn(0, kOne, -kOne, 0), expected(false, 1));  // a phone held upright
  EXPECT_EQ(turn(-kOne, 0, 0, -kOne), expected(false, 2));
  EXPECT_EQ(turn(0, -kOne, kOne, 0), expected(false, 3));
  EXPECT_EQ(turn(-kOne, 0, 0, kOne), expected(true, 0));
  EXPECT_EQ(turn(kOne, 0, 0, -kOne), expected(true, 2));  // upside down without a turn: mirrored, then half round
  EXPECT_EQ(turn(0, -kOne, -kOne, 0), expected(true, 1));
  EXPECT_EQ(turn(0, kOne, kOne, 0), expected(true, 3));
}

// Follows one corner through the matrix and through mirror-then-turn: both must put it at the same place.
TEST(FrameGeometry, OrientationsDoWhatTheirMatricesDo) {
  for (const std::array<int, 4>& m :
       {std::array{1, 0, 0, 1}, std::array{0, 1, -1, 0}, std::array{-1, 0, 0, -1}, std::array{0, -1, 1, 0},
        std::array{-1, 0, 0, 1}, std::array{1, 0, 0, -1}, std::array{0, -1, -1, 0}, std::array{0, 1, 1, 0}}) {
    const Orientation orientation = turn(m[0] * kOne, m[1] * kOne, m[2] * kOne, m[3] * kOne);
    const int x = 3;
    const int y = 1;
    int turnedX = orientation.mirrored ? -x : x;
    int turnedY = y;
    for (int i = 0; i < orientation.quarterTurnsClockwise; ++i) {
      const int before = turnedX;
      turnedX = -turnedY;  // y points down: clockwise sends right to down and down to left
      turnedY = before;
    }
    EXPECT_EQ(turnedX, m[0] * x + m[2] * y);
    EXPECT_EQ(turnedY, m[1] * x + m[3] * y);
  }
}

TEST(FrameGeometry, AMatrixThatSaysNothingTurnsNothing) {
  EXPECT_EQ(turn(0, 0, 0, 0), Orientation{});
  EXPECT_EQ(orientationOfMatrix({}), Orientation{});
  EXPECT_EQ(orientationOfMatrix(std::array<std::int32_t, 4>{0, kOne, -kOne, 0}), Orientation{});
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(turn(kMin, 0, 0, kMin), expected(false, 2));
}

mov::CleanAperture aperture(mov::Fraction width, mov::Fraction height, mov::Fraction right = {},
                            mov::Fraction down = {}) {
  return {width, height, right, down};
}

TEST(FrameGeometry, CleanApertureIsCentredAndShifted) {
  EXPECT_EQ(visibleRect(aperture({1416, 1}, {1062, 1}), 1440, 1080), (PixelRect{12, 9, 1416, 1062}));
  EXPECT_EQ(visibleRect(aperture({1248, 1}, {702, 1}, {4, 1}, {-3, 1}), 1280, 720), (PixelRect{20, 6, 1248, 702}));
  EXPECT_EQ(visibleRect(aperture({99, 2}, {10, 1}, {1, 2}, {}), 50, 10), (PixelRect{0.75, 0, 49.25, 10}));
}

TEST(FrameGeometry, AnApertureBeyondTheFrameIsCutToIt) {
  EXPECT_EQ(visibleRect(aperture({200, 1}, {50, 1}), 100, 60), (PixelRect{0, 5, 100, 50}));
  EXPECT_EQ(visibleRect(aperture({80, 1}, {60, 1}, {30, 1}, {}), 100, 60), (PixelRect{40, 0, 60, 60}));
}

TEST(FrameGeometry, AnApertureOfNothingShowsTheWholeFrame) {
  const PixelRect whole{0, 0, 100, 60};
  EXPECT_EQ(visibleRect(aperture({0, 1}, {60, 1}), 100, 60), whole);
  EXPECT_EQ(visibleRect(aperture({-80, 1}, {60, 1}), 100, 60), whole);
  EXPECT_EQ(visibleRect(aperture({80, 0}, {60, 1}), 100, 60), whole);
  EXPECT_EQ(visibleRect(aperture({80, 1}, {60, 1}, {1000, 1}, {}), 100, 60), whole);
}

class FrameOfPlanes : public ::testing::Test {
 protected:
  FrameOfPlanes() : frame_(av_frame_alloc(), AvDeleter()) {
    frame_->format = AV_PIX_FMT_YUV420P;
    frame_->width = 1440;
    frame_->height = 1080;
    av_frame_get_buffer(frame_.get(), 0);
  }
  PlanarImage image(ApertureMode mode, bool turned = false) const { return planarImage(frame_, shape_, mode, turned); }

  std::shared_ptr<AVFrame> frame_;
  FrameShape shape_;
};

TEST_F(FrameOfPlanes, ApertureModes) {
  shape_.cleanAperture = aperture({1416, 1}, {1062, 1});
  shape_.pixelAspect = {4, 3};
  const PlanarImage clean = image(ApertureMode::cleanAperture);
  EXPECT_EQ(clean.visible, (PixelRect{12, 9, 1416, 1062}));
  EXPECT_EQ(clean.presentationWidth, 1888);
  EXPECT_EQ(clean.presentationHeight, 1062);
  const PlanarImage production = image(ApertureMode::productionAperture);
  EXPECT_EQ(production.visible, (PixelRect{0, 0, 1440, 1080}));
  EXPECT_EQ(production.presentationWidth, 1920);
  const PlanarImage encoded = image(ApertureMode::encodedPixels);
  EXPECT_EQ(encoded.visible, (PixelRect{0, 0, 1440, 1080}));
  EXPECT_EQ(encoded.presentationWidth, 1440);
  EXPECT_EQ(encoded.presentationHeight, 1080);
}

TEST_F(FrameOfPlanes, TheContainersPixelAspectComesBeforeTheFramesOwn) {
  frame_->sample_aspect_ratio = {2, 1};
  EXPECT_EQ(image(ApertureMode::cleanAperture).presentationWidth, 2880);
  shape_.pixelAspect = {4, 3};
  EXPECT_EQ(image(ApertureMode::cleanAperture).presentationWidth, 1920);
  shape_.pixelAspect = {3, 0};
  EXPECT_EQ(image(ApertureMode::cleanAperture).presentationWidth, 2880);
}

TEST_F(FrameOfPlanes, PlanesAreNotCopiedAndKeepTheFrame) {
  const std::weak_ptr<AVFrame> watched = frame_;
  PlanarImage planes = image(ApertureMode::cleanAperture);
  EXPECT_EQ(planes.layout, "yuv420p");
  EXPECT_EQ(planes.planes[1].data, frame_->data[1]);
  EXPECT_EQ(planes.planes[2].rowBytes, frame_->linesize[2]);
  frame_.reset();
  EXPECT_FALSE(watched.expired());
  planes = {};
  EXPECT_TRUE(watched.expired());
}

TEST_F(FrameOfPlanes, ColoursOfTheFrameThenOfTheContainerThenUnspecified) {
  EXPECT_EQ(image(ApertureMode::cleanAperture).colour, ColourTags{});
  shape_.colour = {9, 16, 9, 1};
  EXPECT_EQ(image(ApertureMode::cleanAperture).colour, (ColourTags{9, 16, 9, 1}));
  frame_->color_primaries = AVCOL_PRI_BT709;
  frame_->color_trc = AVCOL_TRC_BT709;
  frame_->colorspace = AVCOL_SPC_BT709;
  frame_->color_range = AVCOL_RANGE_JPEG;
  EXPECT_EQ(image(ApertureMode::cleanAperture).colour, (ColourTags{1, 1, 1, 2}));
  frame_->color_range = AVCOL_RANGE_MPEG;
  frame_->format = AV_PIX_FMT_YUVJ420P;
  EXPECT_EQ(image(ApertureMode::cleanAperture).colour.range, 2);
}

TEST_F(FrameOfPlanes, OrientationOnlyWhenAsked) {
  shape_.orientation = Orientation{true, 1};
  EXPECT_EQ(image(ApertureMode::cleanAperture, false).orientation, Orientation{});
  EXPECT_EQ(image(ApertureMode::cleanAperture, true).orientation, (Orientation{true, 1}));
}

TEST_F(FrameOfPlanes, InterlacedFlags) {
  EXPECT_FALSE(image(ApertureMode::cleanAperture).interlaced);
  frame_->interlaced_frame = 1;
  frame_->top_field_first = 1;
  EXPECT_TRUE(image(ApertureMode::cleanAperture).interlaced);
  EXPECT_TRUE(image(ApertureMode::cleanAperture).topFieldFirst);
}

}  // namespace
}  // namespace vistrelle::platform
