#include <gtest/gtest.h>

#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {
namespace {

TEST(Raster, IsTransparentWithMinimalRows) {
  const auto raster = Bitmap::make(3, 2);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->rowBytes(), 12U);
  EXPECT_EQ(raster->row(1), raster->row(0) + 12);
  for (int i = 0; i < 24; ++i) EXPECT_EQ(raster->row(0)[i], 0);
  EXPECT_EQ(raster->pointWidth(), 3);
  EXPECT_EQ(raster->dpi(), 72);
}

TEST(Raster, PointSizeGivesTheResolution) {
  const auto raster = Bitmap::make(300, 150);
  raster->setPointSize(144, 72);
  EXPECT_DOUBLE_EQ(raster->dpi(), 150);
  EXPECT_EQ(raster->description(), "bitmap 300 x 150 pixels, 144 x 72 points");
}

TEST(Raster, RefusesImpossibleSizes) {
  EXPECT_FALSE(Bitmap::make(0, 10));
  EXPECT_FALSE(Bitmap::make(10, 0));
  EXPECT_FALSE(Bitmap::make(-1, -1));
  EXPECT_FALSE(Bitmap::make(2000000000, 2000000000));
  EXPECT_FALSE(Bitmap::make(2000000000, 1));
  EXPECT_FALSE(Bitmap::make(INT64_MAX, INT64_MAX));
  EXPECT_FALSE(Bitmap::make(INT64_MIN, 1));
  EXPECT_FALSE(Bitmap::make((1 << 14) + 1, 1 << 14));
}

TEST(Picture, SizeOfAFrameIsItsPresentationSizeTurned) {
  auto frame = testing::solidFrame(16, 8, {}, 0, 0, 0);
  frame.presentationWidth = 21.5;
  EXPECT_EQ(Picture(frame).width(), 21.5);
  EXPECT_EQ(Picture(frame).height(), 8);
  frame.orientation.quarterTurnsClockwise = 3;
  EXPECT_EQ(Picture(frame).width(), 8);
  EXPECT_EQ(Picture(frame).height(), 21.5);
}

TEST(Picture, IsInvalidWithoutUsablePlanes) {
  const auto good = testing::solidFrame(16, 8, {}, 0, 0, 0);
  EXPECT_TRUE(Picture(good).isValid());
  auto bad = good;
  bad.layout = "no such layout";
  EXPECT_FALSE(Picture(bad).isValid());
  bad = good;
  bad.planes[2].data = nullptr;
  EXPECT_FALSE(Picture(bad).isValid());
  bad = good;
  bad.planes[0].rowBytes = 15;
  EXPECT_FALSE(Picture(bad).isValid());
  bad = good;
  bad.visible.width = 17;
  EXPECT_FALSE(Picture(bad).isValid());
  bad = good;
  bad.presentationHeight = std::nan("");
  EXPECT_FALSE(Picture(bad).isValid());
  bad = good;
  bad.layout = "vaapi";
  EXPECT_FALSE(Picture(bad).isValid());
  EXPECT_FALSE(Picture(std::shared_ptr<const Bitmap>()).isValid());
  EXPECT_EQ(Picture(std::shared_ptr<const Bitmap>()).width(), 0);
}

}  // namespace
}  // namespace vistrelle::platform
