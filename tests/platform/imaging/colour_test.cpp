#include <gtest/gtest.h>

#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle::platform {
namespace {

using testing::FrameRecipe;
using testing::pixelAt;
using testing::Rgba;

Rgba drawnColour(const PlanarImage& frame, int width = 16, int height = 16) {
  const auto raster = Bitmap::make(width, height);
  EXPECT_TRUE(DrawingContext(*raster).draw(Picture(frame),
                                           {0, 0, static_cast<double>(width), static_cast<double>(height)}, {},
                                           CompositeOperation::sourceOver, 1));
  return pixelAt(*raster, width / 2, height / 2);
}

struct MatrixCase {
  int codePoint;
  double redWeight;
  double blueWeight;
  int lines;
};

const std::vector<MatrixCase> kMatrices{
    {1, 0.2126, 0.0722, 480},
    {4, 0.30, 0.11, 480},
    {5, 0.299, 0.114, 1080},
    {6, 0.299, 0.114, 1080},
    {7, 0.212, 0.087, 480},
    {9, 0.2627, 0.0593, 480},
    {10, 0.2627, 0.0593, 480},
    // Untagged, reserved, unknown and out of place: by the number of lines.
    {2, 0.2126, 0.0722, 720},
    {2, 0.299, 0.114, 719},
    {3, 0.2126, 0.0722, 1080},
    {3, 0.299, 0.114, 576},
    {0, 0.2126, 0.0722, 720},
    {200, 0.299, 0.114, 480},
    {255, 0.2126, 0.0722, 1080},
};

const std::vector<Rgba> kPatches{{200, 30, 30, 255}, {30, 200, 30, 255},   {30, 30, 200, 255}, {255, 255, 255, 255},
                                 {0, 0, 0, 255},     {128, 128, 128, 255}, {255, 0, 0, 255},   {240, 180, 20, 255}};

TEST(FrameColour, FollowsMatrixAndRange) {
  for (const MatrixCase& matrix : kMatrices) {
    for (const bool fullRange : {false, true}) {
      for (const int bits : {8, 10}) {
        for (const Rgba& patch : kPatches) {
          FrameRecipe recipe;
          recipe.layout = bits == 8 ? "yuv420p" : "yuv420p10le";
          recipe.bits = bits;
          recipe.redWeight = matrix.redWeight;
          recipe.blueWeight = matrix.blueWeight;
          recipe.fullRange = fullRange;
          auto frame = testing::solidFrame(16, matrix.lines, recipe, patch[0], patch[1], patch[2]);
          frame.colour.matrix = static_cast<std::uint8_t>(matrix.codePoint);
          frame.colour.range = fullRange ? 2 : 1;
          // The samples themselves are rounded to whole code values.
          EXPECT_LE(testing::largestDifference(drawnColour(frame), patch), bits == 8 ? 2 : 1)
              << "matrix " << matrix.codePoint << " lines " << matrix.lines << " full " << fullRange << " bits "
              << bits;
        }
      }
    }
  }
}

TEST(FrameColour, KnownCodeValues) {
  // BT.709 limited: 63, 102, 240 is red as every test pattern has it.
  FrameRecipe recipe;
  auto frame = testing::solidFrame(16, 16, recipe, 255, 0, 0);
  EXPECT_EQ(frame.planes[0].data[0], 63);
  EXPECT_EQ(frame.planes[1].data[0], 102);
  EXPECT_EQ(frame.planes[2].data[0], 240);
  frame.colour.matrix = 1;
  EXPECT_LE(testing::largestDifference(drawnColour(frame), {255, 0, 0, 255}), 1);
  // The same numbers without a tag in so small a frame are BT.601: a different red.
  frame.colour.matrix = 2;
  EXPECT_GE(testing::largestDifference(drawnColour(frame), {255, 0, 0, 255}), 15);
}

TEST(FrameColour, UntaggedRangeIsLimitedButForJpegNamesAndGray) {
  FrameRecipe recipe;
  recipe.redWeight = 0.299;
  recipe.blueWeight = 0.114;
  const auto limited = testing::solidFrame(16, 16, recipe, 200, 30, 30);
  EXPECT_LE(testing::largestDifference(drawnColour(limited), {200, 30, 30, 255}), 2);
  recipe.fullRange = true;
  recipe.layout = "yuvj420p";
  const auto jpeg = testing::solidFrame(16, 16, recipe, 200, 30, 30);
  EXPECT_LE(testing::largestDifference(drawnColour(jpeg), {200, 30, 30, 255}), 1);
  EXPECT_EQ(drawnColour(testing::rawFrame("gray", 16, 16, 16, std::vector<std::uint8_t>(256, 77))),
            (Rgba{77, 77, 77, 255}));
  auto tagged = testing::rawFrame("gray", 16, 16, 16, std::vector<std::uint8_t>(256, 235));
  tagged.colour.range = 1;
  EXPECT_EQ(drawnColour(tagged), (Rgba{255, 255, 255, 255}));
}

TEST(FrameColour, YCgCo) {
  // Lossy form: Y = (R + 2G + B) / 4, Cg = (-R + 2G - B) / 4, Co = (R - B) / 2, full range around 128.
  FrameRecipe recipe;
  recipe.layout = "yuv444p";
  recipe.shiftX = recipe.shiftY = 0;
  recipe.fullRange = true;
  auto frame = testing::solidFrame(16, 16, recipe, 0, 0, 0);
  const double red = 200;
  const double green = 90;
  const double blue = 30;
  const double values[3] = {(red + 2 * green + blue) / 4, 128 + (-red + 2 * green - blue) / 4, 128 + (red - blue) / 2};
  for (std::size_t plane = 0; plane < 3; ++plane) {
    auto* bytes = const_cast<std::uint8_t*>(frame.planes[plane].data);
    std::fill_n(bytes, frame.planes[plane].rowBytes * 16, static_cast<std::uint8_t>(std::lround(values[plane])));
  }
  frame.colour.matrix = 8;
  frame.colour.range = 2;
  EXPECT_LE(testing::largestDifference(drawnColour(frame), {200, 90, 30, 255}), 2);
}

TEST(FrameColour, OtherLumaChromaLayouts) {
  const Rgba patch{200, 30, 30, 255};
  struct Layout {
    const char* name;
    int bits;
    int shiftX;
    int shiftY;
  };
  for (const Layout& layout : std::vector<Layout>{{"yuv422p", 8, 1, 0},
                                                  {"yuv444p", 8, 0, 0},
                                                  {"yuv411p", 8, 2, 0},
                                                  {"yuv410p", 8, 2, 2},
                                                  {"yuv422p10le", 10, 1, 0},
                                                  {"yuv444p12le", 12, 0, 0},
                                                  {"yuv444p16le", 16, 0, 0}}) {
    FrameRecipe recipe;
    recipe.layout = layout.name;
    recipe.bits = layout.bits;
    recipe.shiftX = layout.shiftX;
    recipe.shiftY = layout.shiftY;
    auto frame = testing::solidFrame(32, 32, recipe, patch[0], patch[1], patch[2]);
    frame.colour.matrix = 1;
    EXPECT_LE(testing::largestDifference(drawnColour(frame), patch), 2) << layout.name;
  }
}

TEST(FrameColour, PackedAndSemiPlanarLayouts) {
  // BT.709 limited red.
  std::vector<std::uint8_t> uyvy;
  for (int i = 0; i < 8 * 16; ++i) uyvy.insert(uyvy.end(), {102, 63, 240, 63});
  auto packed = testing::rawFrame("uyvy422", 16, 16, 32, uyvy);
  packed.colour.matrix = 1;
  EXPECT_LE(testing::largestDifference(drawnColour(packed), {255, 0, 0, 255}), 1);
  packed.visible = {3, 3, 9, 9};
  packed.presentationWidth = packed.presentationHeight = 9;
  EXPECT_LE(testing::largestDifference(drawnColour(packed), {255, 0, 0, 255}), 1);

  std::vector<std::uint8_t> luma(256, 63);
  std::vector<std::uint8_t> chroma;
  for (int i = 0; i < 64; ++i) chroma.insert(chroma.end(), {102, 240});
  auto semi = testing::rawFrame("nv12", 16, 16, 16, luma, chroma);
  semi.planes[1].rowBytes = 16;
  semi.colour.matrix = 1;
  EXPECT_LE(testing::largestDifference(drawnColour(semi), {255, 0, 0, 255}), 1);
  semi.visible = {3, 5, 10, 8};
  semi.presentationWidth = 10;
  semi.presentationHeight = 8;
  EXPECT_LE(testing::largestDifference(drawnColour(semi), {255, 0, 0, 255}), 1);
}

TEST(FrameColour, RgbLayoutsAreExact) {
  const auto repeated = [](std::vector<std::uint8_t> pixel) {
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 256; ++i) bytes.insert(bytes.end(), pixel.begin(), pixel.end());
    return bytes;
  };
  const Rgba wanted{201, 31, 57, 255};
  EXPECT_EQ(drawnColour(testing::rawFrame("rgb24", 16, 16, 48, repeated({201, 31, 57}))), wanted);
  EXPECT_EQ(drawnColour(testing::rawFrame("bgr24", 16, 16, 48, repeated({57, 31, 201}))), wanted);
  EXPECT_EQ(drawnColour(testing::rawFrame("bgr0", 16, 16, 64, repeated({57, 31, 201, 9}))), wanted);
  EXPECT_EQ(drawnColour(testing::rawFrame("argb", 16, 16, 64, repeated({255, 201, 31, 57}))), wanted);
  EXPECT_EQ(drawnColour(testing::rawFrame("rgb48le", 16, 16, 96, repeated({201, 201, 31, 31, 57, 57}))), wanted);
  // 5 bits a component: 24, 4, 7.
  EXPECT_EQ(drawnColour(testing::rawFrame("rgb555le", 16, 16, 32, repeated({0x87, 0x60}))), (Rgba{197, 33, 58, 255}));
  std::vector<std::uint8_t> palette(1024, 0);
  palette[4 * 9] = 57;  // native 32-bit ARGB
  palette[4 * 9 + 1] = 31;
  palette[4 * 9 + 2] = 201;
  palette[4 * 9 + 3] = 255;
  EXPECT_EQ(drawnColour(testing::rawFrame("pal8", 16, 16, 16, repeated({9}), palette)), wanted);
}

TEST(FrameColour, AlphaOfAFrameIsKeptOrLaidOnBlack) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < 256; ++i) bytes.insert(bytes.end(), {200, 100, 50, 128});
  const Picture picture(testing::rawFrame("rgba", 16, 16, 64, bytes));
  const auto clear = Bitmap::make(16, 16);
  DrawingContext(*clear).draw(picture, {0, 0, 16, 16}, {}, CompositeOperation::destinationOver, 1);
  EXPECT_EQ(pixelAt(*clear, 8, 8), (Rgba{100, 50, 25, 128}));
  const auto black = testing::paintedRaster(16, 16, [](int, int) { return Rgba{0, 0, 0, 255}; });
  DrawingContext(*black).draw(picture, {0, 0, 16, 16}, {}, CompositeOperation::sourceOver, 1);
  EXPECT_EQ(pixelAt(*black, 8, 8), (Rgba{100, 50, 25, 255}));
}

TEST(FrameColour, AlphaOfALumaChromaFrame) {
  FrameRecipe recipe;
  auto frame = testing::solidFrame(16, 16, recipe, 255, 255, 255);
  frame.layout = "yuva420p";
  const std::vector<std::uint8_t> alpha(16 * 16 + 64, 64);
  frame.planes[3] = {alpha.data(), 16};
  const auto raster = Bitmap::make(16, 16);
  DrawingContext(*raster).draw(Picture(frame), {0, 0, 16, 16}, {}, CompositeOperation::destinationOver, 1);
  EXPECT_LE(testing::largestDifference(pixelAt(*raster, 8, 8), {64, 64, 64, 64}), 1);
}

// ---- high dynamic range -----------------------------------------------------------------------------

/// Coded value of a light of so many cd/m2 (SMPTE ST 2084).
double pqCoded(double light) {
  const double y = std::pow(light / 10000, 2610.0 / 16384);
  return std::pow((3424.0 / 4096 + 2413.0 / 128 * y) / (1 + 2392.0 / 128 * y), 2523.0 / 32);
}

Rgba grayOf(double coded, int transfer) {
  FrameRecipe recipe;
  recipe.layout = "yuv420p10le";
  recipe.bits = 10;
  recipe.redWeight = 0.2627;
  recipe.blueWeight = 0.0593;
  auto frame = testing::solidFrame(16, 16, recipe, coded * 255, coded * 255, coded * 255);
  frame.colour = {9, static_cast<std::uint8_t>(transfer), 9, 1};
  return drawnColour(frame);
}

TEST(HighDynamicRange, DiffuseWhiteIsNearWhite) {
  for (const Rgba& white : {grayOf(pqCoded(203), 16), grayOf(0.75, 18)}) {
    EXPECT_NEAR(white[0], 235, 3);
    EXPECT_NEAR(white[1], 235, 3);
    EXPECT_NEAR(white[2], 235, 3);
  }
}

TEST(HighDynamicRange, TonesRiseAsFarAsTheCodeReaches) {
  int former = -1;
  for (const double light : {0.0, 1.0, 5.0, 20.0, 50.0, 100.0, 203.0, 400.0, 700.0, 1000.0, 2000.0, 4500.0}) {
    const int value = grayOf(pqCoded(light), 16)[1];
    EXPECT_GT(value, former) << light;
    former = value;
  }
  EXPECT_NEAR(grayOf(pqCoded(1000), 16)[1], 252, 1);
  EXPECT_EQ(grayOf(1.0, 16)[1], 255);
  EXPECT_EQ(grayOf(0.0, 16), (Rgba{0, 0, 0, 255}));
  EXPECT_EQ(grayOf(0.0, 18), (Rgba{0, 0, 0, 255}));
  EXPECT_GE(grayOf(1.0, 18)[1], 254);
  for (int step = 1; step <= 20; ++step) {
    EXPECT_GT(grayOf(step / 20.0, 18)[1], grayOf((step - 1) / 20.0, 18)[1]) << "HLG " << step;
  }
  // Darker tones keep their light: 20 cd/m2 is a tenth of diffuse white, coded 90.
  EXPECT_NEAR(grayOf(pqCoded(20.3), 16)[1], 89, 2);
}

TEST(HighDynamicRange, RedStaysRed) {
  FrameRecipe recipe;
  recipe.layout = "yuv444p10le";
  recipe.shiftX = recipe.shiftY = 0;
  recipe.bits = 10;
  recipe.redWeight = 0.2627;
  recipe.blueWeight = 0.0593;
  // BT.709 red of 100 cd/m2 in BT.2020 primaries.
  auto frame = testing::solidFrame(16, 16, recipe, pqCoded(62.7) * 255, pqCoded(6.9) * 255, pqCoded(1.6) * 255);
  frame.colour = {9, 16, 9, 1};
  const Rgba colour = drawnColour(frame);
  EXPECT_NEAR(colour[0], 184, 4);  // 100 / 203 of white
  EXPECT_LE(colour[1], 12);
  EXPECT_LE(colour[2], 12);
}

}  // namespace
}  // namespace vistrelle::platform
