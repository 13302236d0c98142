#include "vistrelle/platform/imaging/drawing.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/synthetic_pictures.h"

namespace vistrelle::platform {
namespace {

using testing::paintedPicture;
using testing::pixelAt;
using testing::Rgba;

constexpr Rgba kNothing{0, 0, 0, 0};
constexpr Rgba kRed{255, 0, 0, 255};
constexpr Rgba kBlue{0, 0, 255, 255};

/// Each pixel its own colour.
Rgba distinct(int x, int y) {
  return {x * 16, y * 16, (x + y) * 8, 255};
}

std::shared_ptr<Bitmap> rasterOf(Rgba colour, int width, int height) {
  return testing::paintedRaster(width, height, [colour](int, int) { return colour; });
}

TEST(Fill, StartsAtTheLowerLeft) {
  const auto raster = Bitmap::make(4, 4);
  DrawingContext(*raster).fill({0, 0, 3, 1}, {1, 0, 0, 1});
  EXPECT_EQ(pixelAt(*raster, 0, 3), kRed);
  EXPECT_EQ(pixelAt(*raster, 2, 3), kRed);
  EXPECT_EQ(pixelAt(*raster, 3, 3), kNothing);
  EXPECT_EQ(pixelAt(*raster, 0, 2), kNothing);
}

TEST(Fill, CountsInPoints) {
  const auto raster = Bitmap::make(8, 8);
  raster->setPointSize(4, 4);  // 144 dpi
  DrawingContext(*raster).fill({1, 1, 2, 1}, {1, 0, 0, 1});
  EXPECT_EQ(pixelAt(*raster, 2, 5), kRed);
  EXPECT_EQ(pixelAt(*raster, 5, 4), kRed);
  EXPECT_EQ(pixelAt(*raster, 6, 5), kNothing);
  EXPECT_EQ(pixelAt(*raster, 2, 6), kNothing);
  EXPECT_EQ(pixelAt(*raster, 2, 3), kNothing);
}

TEST(Fill, ReplacesWithAlphaAndCutsComponents) {
  const auto raster = rasterOf(kBlue, 2, 1);
  DrawingContext(*raster).fill({0, 0, 1, 1}, {2.0, std::nan(""), -1, 0.5});
  EXPECT_EQ(pixelAt(*raster, 0, 0), (Rgba{128, 0, 0, 128}));
  EXPECT_EQ(pixelAt(*raster, 1, 0), kBlue);
}

TEST(Fill, SharesPixelsAtBrokenEdges) {
  const auto raster = Bitmap::make(2, 1);
  DrawingContext(*raster).fill({0.5, 0, 1, 1}, {1, 1, 1, 1});
  EXPECT_EQ(pixelAt(*raster, 0, 0), (Rgba{128, 128, 128, 128}));
  EXPECT_EQ(pixelAt(*raster, 1, 0), (Rgba{128, 128, 128, 128}));
}

TEST(Fill, IgnoresEmptyAndImpossibleRectangles) {
  const auto raster = Bitmap::make(2, 2);
  DrawingContext context(*raster);
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  context.fill({0, 0, -2, 2}, {1, 1, 1, 1});
  context.fill({0, 0, kInfinity, 2}, {1, 1, 1, 1});
  context.fill({std::nan(""), 0, 2, 2}, {1, 1, 1, 1});
  context.fill({5, 5, 2, 2}, {1, 1, 1, 1});
  for (int i = 0; i < 4; ++i) EXPECT_EQ(pixelAt(*raster, i % 2, i / 2), kNothing);
}

TEST(Fill, APointSizeThatSaysNothingIsThePixelSize) {
  for (const double points : {0.0, -3.0, std::nan(""), 4.94e-324}) {
    const auto raster = Bitmap::make(4, 4);
    raster->setPointSize(points, points);
    DrawingContext(*raster).fill({0, 0, 2, 1}, {1, 0, 0, 1});
    EXPECT_EQ(pixelAt(*raster, 1, 3), kRed) << points;
    EXPECT_EQ(pixelAt(*raster, 2, 3), kNothing) << points;
    EXPECT_EQ(pixelAt(*raster, 1, 2), kNothing) << points;
  }
}

TEST(Draw, CopiesPixelsOneToOne) {
  const auto picture = paintedPicture(5, 3, distinct);
  const auto raster = Bitmap::make(5, 3);
  ASSERT_TRUE(DrawingContext(*raster).draw(*picture, {0, 0, 5, 3}, {}, CompositeOperation::sourceOver, 1));
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) EXPECT_EQ(pixelAt(*raster, x, y), distinct(x, y));
  }
}

TEST(Draw, SourceRectangleCountsFromTheLowerLeft) {
  const auto picture = paintedPicture(6, 5, distinct);
  const auto raster = Bitmap::make(4, 4);
  DrawingContext(*raster).draw(*picture, {1, 1, 2, 3}, {3, 0, 2, 3}, CompositeOperation::sourceOver, 1);
  // The lower three rows (2 to 4) of columns 3 and 4, a row above the raster's lowest.
  EXPECT_EQ(pixelAt(*raster, 1, 0), distinct(3, 2));
  EXPECT_EQ(pixelAt(*raster, 2, 2), distinct(4, 4));
  EXPECT_EQ(pixelAt(*raster, 1, 3), kNothing);
  EXPECT_EQ(pixelAt(*raster, 0, 0), kNothing);
  EXPECT_EQ(pixelAt(*raster, 3, 0), kNothing);
}

TEST(Draw, DrawsOnlyWhatExistsOfTheSource) {
  const auto picture = paintedPicture(2, 2, distinct);
  const auto raster = rasterOf(kBlue, 4, 4);
  DrawingContext(*raster).draw(*picture, {0, 0, 4, 4}, {-1, 0, 4, 4}, CompositeOperation::sourceOver, 1);
  EXPECT_EQ(pixelAt(*raster, 1, 2), distinct(0, 0));
  EXPECT_EQ(pixelAt(*raster, 2, 3), distinct(1, 1));
  EXPECT_EQ(pixelAt(*raster, 0, 3), kBlue);
  EXPECT_EQ(pixelAt(*raster, 3, 3), kBlue);
  EXPECT_EQ(pixelAt(*raster, 1, 1), kBlue);
}

TEST(Draw, CutsWhatLiesOutsideTheRaster) {
  const auto picture = paintedPicture(4, 4, distinct);
  const auto raster = Bitmap::make(2, 2);
  DrawingContext(*raster).draw(*picture, {-1, -2, 4, 4}, {}, CompositeOperation::sourceOver, 1);
  // Raster pixel (0, 1) is the lowest row at y 0 to 1, two above the picture's lowest.
  EXPECT_EQ(pixelAt(*raster, 0, 1), distinct(1, 1));
  EXPECT_EQ(pixelAt(*raster, 1, 0), distinct(2, 0));
}

TEST(Draw, NothingOfTheSourceExists) {
  const auto picture = paintedPicture(2, 2, distinct);
  const auto raster = rasterOf(kBlue, 2, 2);
  DrawingContext context(*raster);
  EXPECT_TRUE(context.draw(*picture, {0, 0, 2, 2}, {5, 5, 2, 2}, CompositeOperation::sourceOver, 1));
  EXPECT_TRUE(context.draw(*picture, {0, 0, 2, 2}, {0, 0, -3, 2}, CompositeOperation::sourceOver, 1));
  EXPECT_TRUE(context.draw(*picture, {0, 0, std::nan(""), 2}, {}, CompositeOperation::sourceOver, 1));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(pixelAt(*raster, i % 2, i / 2), kBlue);
}

TEST(Draw, ThinnerThanAnyShareOfAPixelDrawsNothing) {
  const auto picture = paintedPicture(4, 4, distinct);
  const auto raster = rasterOf(kBlue, 3, 3);
  DrawingContext context(*raster);
  for (const double side : {1e-300, 1e-9, 1e-7}) {
    EXPECT_TRUE(context.draw(*picture, {0, 0, side, side}, {}, CompositeOperation::sourceOver, 1)) << side;
    EXPECT_TRUE(context.draw(*picture, {1, 1, 2, side}, {}, CompositeOperation::sourceOver, 1)) << side;
    EXPECT_TRUE(context.draw(*picture, {1.5, 1, side, 2}, {}, CompositeOperation::sourceOver, 1)) << side;
  }
  for (int i = 0; i < 9; ++i) EXPECT_EQ(pixelAt(*raster, i % 3, i / 3), kBlue);
}

TEST(Draw, AHairlineHoldsTheWholePicture) {
  const auto picture = paintedPicture(1 << 20, 1, [](int, int) { return kRed; });
  for (const double side : {1e-5, 1e-3, 0.5}) {
    const auto raster = rasterOf(kBlue, 3, 3);
    EXPECT_TRUE(DrawingContext(*raster).draw(*picture, {1.25, 1, side, 1}, {}, CompositeOperation::sourceOver, 1));
    EXPECT_NEAR(pixelAt(*raster, 1, 1)[0], 255 * side, 1) << side;
    EXPECT_EQ(pixelAt(*raster, 0, 1), kBlue);
    EXPECT_EQ(pixelAt(*raster, 2, 1), kBlue);
  }
}

TEST(Draw, AnInvalidPictureIsRefused) {
  const auto raster = rasterOf(kBlue, 2, 2);
  const Picture broken{std::shared_ptr<const Bitmap>()};
  EXPECT_FALSE(DrawingContext(*raster).draw(broken, {0, 0, 2, 2}, {}, CompositeOperation::sourceOver, 1));
  EXPECT_EQ(pixelAt(*raster, 0, 0), kBlue);
}

TEST(Draw, SourceOverBlendsByAlpha) {
  const auto picture = paintedPicture(1, 1, [](int, int) { return Rgba{255, 0, 0, 128}; });
  const auto raster = rasterOf(kBlue, 1, 1);
  DrawingContext(*raster).draw(*picture, {0, 0, 1, 1}, {}, CompositeOperation::sourceOver, 1);
  EXPECT_EQ(pixelAt(*raster, 0, 0), (Rgba{128, 0, 127, 255}));
}

TEST(Draw, DestinationOverGoesBeneath) {
  const auto picture = paintedPicture(3, 1, [](int, int) { return kRed; });
  const auto raster = testing::paintedRaster(3, 1, [](int x, int) {
    return Rgba{0, 0, 255, x == 0 ? 255 : x == 1 ? 128 : 0};
  });
  DrawingContext(*raster).draw(*picture, {0, 0, 3, 1}, {}, CompositeOperation::destinationOver, 1);
  EXPECT_EQ(pixelAt(*raster, 0, 0), kBlue);
  EXPECT_EQ(pixelAt(*raster, 1, 0), (Rgba{127, 0, 128, 255}));
  EXPECT_EQ(pixelAt(*raster, 2, 0), kRed);
}

TEST(Draw, FractionMultipliesAlpha) {
  const auto picture = paintedPicture(1, 1, [](int, int) { return kRed; });
  const auto raster = Bitmap::make(1, 1);
  DrawingContext(*raster).draw(*picture, {0, 0, 1, 1}, {}, CompositeOperation::destinationOver, 0.25F);
  EXPECT_EQ(pixelAt(*raster, 0, 0), (Rgba{64, 0, 0, 64}));
}

TEST(Draw, BrokenEdgesLetTheBackgroundThrough) {
  const auto picture = paintedPicture(2, 2, [](int, int) { return kRed; });
  const auto raster = rasterOf({0, 0, 0, 255}, 4, 4);
  DrawingContext(*raster).draw(*picture, {0.5, 1, 2, 2}, {}, CompositeOperation::sourceOver, 1);
  EXPECT_EQ(pixelAt(*raster, 0, 1), (Rgba{128, 0, 0, 255}));
  EXPECT_EQ(pixelAt(*raster, 1, 1), kRed);
  EXPECT_EQ(pixelAt(*raster, 2, 2), (Rgba{128, 0, 0, 255}));
  EXPECT_EQ(pixelAt(*raster, 3, 2), (Rgba{0, 0, 0, 255}));
}

TEST(Draw, TransparentNeighboursDoNotBleedTheirColour) {
  // Left half opaque white, right half transparent with a colour that must never show.
  const auto picture = paintedPicture(8, 8, [](int x, int) {
    return x < 4 ? Rgba{255, 255, 255, 255} : Rgba{255, 0, 0, 0};
  });
  const auto raster = Bitmap::make(13, 13);
  DrawingContext(*raster).draw(*picture, {0, 0, 13, 13}, {}, CompositeOperation::destinationOver, 1);
  for (int x = 0; x < 13; ++x) {
    const Rgba pixel = pixelAt(*raster, x, 6);
    EXPECT_EQ(pixel[0], pixel[3]);
    EXPECT_EQ(pixel[1], pixel[3]);
  }
}

// ---- turned and mirrored frames ---------------------------------------------------------------------

/// Where a pixel of the stored frame is shown: mirrored first, then turned clockwise.
std::pair<int, int> shownAt(int x, int y, int width, int height, const Orientation& orientation) {
  if (orientation.mirrored) x = width - 1 - x;
  for (int turn = 0; turn < orientation.quarterTurnsClockwise; ++turn) {
    const int formerX = x;
    x = height - 1 - y;
    y = formerX;
    std::swap(width, height);
  }
  return {x, y};
}

class Orientations : public ::testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  Orientation orientation() const { return {std::get<1>(GetParam()), std::get<0>(GetParam())}; }
};

TEST_P(Orientations, EveryPixelLandsWhereItBelongs) {
  constexpr int kWidth = 7;
  constexpr int kHeight = 4;
  std::vector<std::uint8_t> bytes;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      for (std::size_t part = 0; part < 3; ++part) bytes.push_back(static_cast<std::uint8_t>(distinct(x, y)[part]));
    }
  }
  auto frame = testing::rawFrame("rgb24", kWidth, kHeight, 3 * kWidth, std::move(bytes));
  frame.orientation = orientation();
  const Picture picture(frame);
  const auto raster = Bitmap::make(static_cast<int>(picture.width()), static_cast<int>(picture.height()));
  ASSERT_TRUE(DrawingContext(*raster).draw(picture, {0, 0, picture.width(), picture.height()}, {},
                                           CompositeOperation::sourceOver, 1));
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const auto [shownX, shownY] = shownAt(x, y, kWidth, kHeight, orientation());
      EXPECT_EQ(pixelAt(*raster, shownX, shownY), distinct(x, y)) << x << ", " << y;
    }
  }
}

TEST_P(Orientations, ACropOfATurnedFrameIsTheCropOfItsUprightTwin) {
  constexpr int kWidth = 40;
  constexpr int kHeight = 24;
  const auto colourAt = [](double x, double y) { return std::array<double, 3>{x / 40, y / 24, 0.5}; };
  testing::FrameRecipe recipe;
  recipe.layout = "yuv444p";
  recipe.shiftX = recipe.shiftY = 0;
  auto frame = testing::paintedFrame(kWidth, kHeight, recipe, colourAt);
  frame.colour.matrix = 1;
  frame.orientation = orientation();
  const Picture turned(frame);
  const int width = static_cast<int>(turned.width());
  const int height = static_cast<int>(turned.height());
  const auto upright = Bitmap::make(width, height);
  ASSERT_TRUE(DrawingContext(*upright).draw(turned, {0, 0, turned.width(), turned.height()}, {},
                                            CompositeOperation::sourceOver, 1));
  const Picture twin{std::shared_ptr<const Bitmap>(upright)};

  const DrawingRect source{3, 5, 14, 12};
  const auto fromTurned = Bitmap::make(28, 18);
  const auto fromTwin = Bitmap::make(28, 18);
  DrawingContext(*fromTurned).draw(turned, {0, 0, 28, 18}, source, CompositeOperation::sourceOver, 1);
  DrawingContext(*fromTwin).draw(twin, {0, 0, 28, 18}, source, CompositeOperation::sourceOver, 1);
  // The outermost pixels may look at what lies beyond the crop or not.
  for (int y = 3; y < 15; ++y) {
    for (int x = 4; x < 24; ++x) {
      EXPECT_LE(testing::largestDifference(pixelAt(*fromTurned, x, y), pixelAt(*fromTwin, x, y)), 2) << x << ", " << y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, Orientations, ::testing::Combine(::testing::Values(0, 1, 2, 3), ::testing::Bool()));

}  // namespace
}  // namespace vistrelle::platform
