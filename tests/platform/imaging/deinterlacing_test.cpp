#include "vistrelle/platform/imaging/deinterlacing.h"

#include <gtest/gtest.h>

#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle::platform {
namespace {

using testing::FrameRecipe;
using testing::pixelAt;

constexpr int kWidth = 160;
constexpr int kHeight = 96;
constexpr int kMoved = 12;

double sceneAt(double x, double y) {
  return 0.5 + 0.3 * std::sin(x * 0.13 + y * 0.05) + 0.15 * std::sin(x * 0.31 - y * 0.11);
}

/// Fields that see the scene at two moments: the later one is moved to the right.
PlanarImage movingFrame(const FrameRecipe& recipe, bool topFieldFirst, int moved) {
  PlanarImage frame = testing::paintedFrame(kWidth, kHeight, recipe, [=](double x, double y) {
    const bool isTop = static_cast<int>(y) % 2 == 0;
    const double value = sceneAt(isTop == topFieldFirst ? x : x - moved, y);
    return std::array<double, 3>{value, value, value};
  });
  frame.colour.range = recipe.fullRange ? 2 : 1;
  frame.interlaced = true;
  frame.topFieldFirst = topFieldFirst;
  return frame;
}

std::shared_ptr<Bitmap> drawn(const PlanarImage& frame) {
  auto raster = Bitmap::make(kWidth, kHeight);
  EXPECT_TRUE(
      DrawingContext(*raster).draw(Picture(frame), {0, 0, kWidth, kHeight}, {}, CompositeOperation::sourceOver, 1));
  return raster;
}

/// Mean difference of green from the scene as the first field saw it, in code values.
double errorOf(const Bitmap& raster) {
  double sum = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) sum += std::fabs(pixelAt(raster, x, y)[1] - 255 * sceneAt(x, y));
  }
  return sum / (kWidth * kHeight);
}

TEST(Deinterlacing, ShowsTheMomentOfTheFirstField) {
  for (const bool topFieldFirst : {true, false}) {
    for (const int bits : {8, 10}) {
      FrameRecipe recipe;
      recipe.layout = bits == 8 ? "yuv420p" : "yuv420p10le";
      recipe.bits = bits;
      PlanarImage frame = movingFrame(recipe, topFieldFirst, kMoved);
      EXPECT_LT(errorOf(*drawn(frame)), 2.0) << bits << " bits, top first: " << topFieldFirst;
      // The other way round it is the other moment; and as it is stored it is half of each.
      frame.topFieldFirst = !topFieldFirst;
      EXPECT_GT(errorOf(*drawn(frame)), 10.0);
      frame.interlaced = false;
      EXPECT_GT(errorOf(*drawn(frame)), 10.0);
    }
  }
}

TEST(Deinterlacing, WhatStandsStillKeepsItsFullHeight) {
  FrameRecipe recipe;
  // Lines of one row: the finest detail there is.
  PlanarImage frame = testing::paintedFrame(kWidth, kHeight, recipe, [](double x, double y) {
    const double value = static_cast<int>(y) % 16 == 5 ? 0.9 : 0.2 + 0.2 * std::sin(x * 0.2);
    return std::array<double, 3>{value, value, value};
  });
  frame.interlaced = frame.topFieldFirst = true;
  const auto layout = frameLayout(frame);
  ASSERT_TRUE(layout);
  const PlanarImage result = deinterlaced(frame, *layout);
  EXPECT_EQ(result.planes[0].data, frame.planes[0].data) << "nothing to do, nothing copied";
}

TEST(Deinterlacing, ProgressiveFramesAreNotTouched) {
  FrameRecipe recipe;
  PlanarImage frame = movingFrame(recipe, true, kMoved);
  frame.interlaced = false;
  EXPECT_EQ(deinterlaced(frame, *frameLayout(frame)).planes[0].data, frame.planes[0].data);
}

TEST(Deinterlacing, OnlyWhatMovesIsMadeAnew) {
  FrameRecipe recipe;
  const PlanarImage frame = [&] {
    PlanarImage image = testing::paintedFrame(kWidth, kHeight, recipe, [](double x, double y) {
      const bool isLater = static_cast<int>(y) % 2 == 1;
      const bool moves = x >= 100;
      const double value = moves ? sceneAt(isLater ? x - kMoved : x, y) : (static_cast<int>(y) % 12 == 3 ? 0.9 : 0.3);
      return std::array<double, 3>{value, value, value};
    });
    image.interlaced = image.topFieldFirst = true;
    return image;
  }();
  const PlanarImage result = deinterlaced(frame, *frameLayout(frame));
  ASSERT_NE(result.planes[0].data, frame.planes[0].data);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < 80; ++x) {
      ASSERT_EQ(result.planes[0].data[y * result.planes[0].rowBytes + x],
                frame.planes[0].data[y * frame.planes[0].rowBytes + x])
          << x << " " << y;
    }
  }
  EXPECT_NE(result.planes[0].data[49 * result.planes[0].rowBytes + 130],
            frame.planes[0].data[49 * frame.planes[0].rowBytes + 130]);
}

TEST(Deinterlacing, PackedAndSemiPlanarLayoutsToo) {
  const auto lumaOf = [](int x, int y) {
    return static_cast<std::uint8_t>(16 + 219 * sceneAt(y % 2 == 0 ? x : x - kMoved, y));
  };
  std::vector<std::uint8_t> uyvy;
  std::vector<std::uint8_t> luma;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      uyvy.insert(uyvy.end(), {128, lumaOf(x, y)});
      luma.push_back(lumaOf(x, y));
    }
  }
  auto packed = testing::rawFrame("uyvy422", kWidth, kHeight, 2 * kWidth, uyvy);
  auto semi =
      testing::rawFrame("nv12", kWidth, kHeight, kWidth, luma, std::vector<std::uint8_t>(kWidth * kHeight, 128));
  semi.planes[1].rowBytes = kWidth;
  for (PlanarImage* frame : {&packed, &semi}) {
    frame->interlaced = frame->topFieldFirst = true;
    EXPECT_LT(errorOf(*drawn(*frame)), 2.0) << frame->layout;
  }
}

TEST(Deinterlacing, TinyAndOddFramesAreSafe) {
  FrameRecipe recipe;
  for (int width = 1; width < 12; ++width) {
    for (int height = 1; height < 20; ++height) {
      PlanarImage frame = testing::paintedFrame(width, height, recipe, [](double x, double y) {
        const double value = static_cast<int>(x + y) % 2 == 0 ? 1 : 0;
        return std::array<double, 3>{value, value, value};
      });
      frame.interlaced = true;
      const auto raster = Bitmap::make(8, 8);
      EXPECT_TRUE(DrawingContext(*raster).draw(Picture(frame), {0, 0, 8, 8}, {}, CompositeOperation::sourceOver, 1));
    }
  }
}

}  // namespace
}  // namespace vistrelle::platform
