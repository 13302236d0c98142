#include <gtest/gtest.h>

#include <numbers>

#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle::platform {
namespace {

using testing::FrameRecipe;
using testing::pixelAt;

constexpr double kPi = std::numbers::pi;

double sinc(double x) {
  return x == 0 ? 1 : std::sin(kPi * x) / (kPi * x);
}

/// Reference: Lanczos of three lobes in double precision, straight from the painted function's samples.
std::vector<double> reference(const std::vector<double>& source, int width, int height, const PixelRect& window,
                              int outWidth, int outHeight) {
  const auto scaleAxis = [](const std::vector<double>& in, int length, int lines, double start, double span, int out) {
    std::vector<double> result(static_cast<std::size_t>(out) * static_cast<std::size_t>(lines));
    const double ratio = span / out;
    const double stretch = std::max(1.0, ratio);
    for (int i = 0; i < out; ++i) {
      const double centre = start + (i + 0.5) * ratio - 0.5;
      for (int line = 0; line < lines; ++line) {
        double sum = 0;
        double weights = 0;
        for (int tap = static_cast<int>(centre - 3 * stretch); tap <= static_cast<int>(centre + 3 * stretch) + 1;
             ++tap) {
          const double distance = (tap - centre) / stretch;
          if (std::fabs(distance) >= 3) continue;
          const double weight = sinc(distance) * sinc(distance / 3);
          sum += weight * in[static_cast<std::size_t>(std::clamp(tap, 0, length - 1) + line * length)];
          weights += weight;
        }
        result[static_cast<std::size_t>(line + i * lines)] = sum / weights;  // turned: columns become rows
      }
    }
    return result;
  };
  const auto turned = scaleAxis(source, width, height, window.x, window.width, outWidth);
  const auto upright = scaleAxis(turned, height, outWidth, window.y, window.height, outHeight);
  return upright;  // row after row
}

/// Peak signal-to-noise ratio of the green component in dB, edges left out.
double psnr(const Bitmap& raster, const std::vector<double>& wanted) {
  constexpr int kEdge = 4;
  double sum = 0;
  int count = 0;
  for (int y = kEdge; y < raster.height() - kEdge; ++y) {
    for (int x = kEdge; x < raster.width() - kEdge; ++x) {
      const double value = std::clamp(wanted[static_cast<std::size_t>(y * raster.width() + x)] * 255, 0.0, 255.0);
      const double difference = pixelAt(raster, x, y)[1] - value;
      sum += difference * difference;
      ++count;
    }
  }
  return 10 * std::log10(255.0 * 255.0 * count / std::max(sum, 1e-9));
}

double texture(double x, double y) {
  return 0.5 + 0.2 * std::sin(x * 0.31 + y * 0.13) + 0.2 * std::cos(y * 0.27 - x * 0.05);
}

std::vector<double> samplesOf(double (*function)(double, double), int width, int height) {
  std::vector<double> samples;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) samples.push_back(function(x, y));
  }
  return samples;
}

PlanarImage grayFrame(double (*function)(double, double), int width, int height, const FrameRecipe& recipe = {}) {
  auto frame = testing::paintedFrame(width, height, recipe, [function](double x, double y) {
    const double value = std::clamp(function(x, y), 0.0, 1.0);
    return std::array<double, 3>{value, value, value};
  });
  frame.colour.matrix = 1;
  return frame;
}

std::shared_ptr<Bitmap> scaled(const PlanarImage& frame, int width, int height) {
  auto raster = Bitmap::make(width, height);
  EXPECT_TRUE(DrawingContext(*raster).draw(Picture(frame),
                                           {0, 0, static_cast<double>(width), static_cast<double>(height)}, {},
                                           CompositeOperation::sourceOver, 1));
  return raster;
}

std::shared_ptr<const Picture> grayPicture(double (*function)(double, double), int width, int height) {
  return testing::paintedPicture(width, height, [function](int x, int y) {
    const int value = static_cast<int>(std::lround(std::clamp(function(x, y), 0.0, 1.0) * 255));
    return testing::Rgba{value, value, value, 255};
  });
}

std::shared_ptr<Bitmap> scaled(const Picture& picture, int width, int height) {
  auto raster = Bitmap::make(width, height);
  EXPECT_TRUE(DrawingContext(*raster).draw(picture, {0, 0, static_cast<double>(width), static_cast<double>(height)}, {},
                                           CompositeOperation::sourceOver, 1));
  return raster;
}

struct Sizes {
  int width;
  int height;
};
const std::vector<Sizes> kSizes{{160, 90}, {133, 100}, {320, 240}, {97, 181}, {500, 300}};

TEST(Scaling, FramesAgreeWithTheReference) {
  const auto samples = samplesOf(texture, 240, 180);
  const auto frame = grayFrame(texture, 240, 180);
  for (const Sizes& size : kSizes) {
    const auto wanted = reference(samples, 240, 180, {0, 0, 240, 180}, size.width, size.height);
    EXPECT_GT(psnr(*scaled(frame, size.width, size.height), wanted), 44) << size.width << " x " << size.height;
  }
}

TEST(Scaling, RastersAgreeWithTheReference) {
  const auto samples = samplesOf(texture, 240, 180);
  const auto picture = grayPicture(texture, 240, 180);
  for (const Sizes& size : kSizes) {
    const auto wanted = reference(samples, 240, 180, {0, 0, 240, 180}, size.width, size.height);
    EXPECT_GT(psnr(*scaled(*picture, size.width, size.height), wanted), 44) << size.width << " x " << size.height;
  }
}

TEST(Scaling, VisiblePartBetweenPixels) {
  const auto samples = samplesOf(texture, 240, 180);
  auto frame = grayFrame(texture, 240, 180);
  frame.visible = {8.36, 3.5, 223.28, 170.25};
  frame.presentationWidth = 300;
  frame.presentationHeight = 171;
  const auto wanted = reference(samples, 240, 180, frame.visible, 200, 120);
  EXPECT_GT(psnr(*scaled(frame, 200, 120), wanted), 45);
  // A pixel's offset left out would be seen.
  EXPECT_LT(psnr(*scaled(frame, 200, 120), reference(samples, 240, 180, {8, 3, 223.28, 170.25}, 200, 120)), 40);
}

TEST(Scaling, VisiblePartInOddWholePixels) {
  FrameRecipe recipe;
  // Colour changes along x only in chroma: a shift of the chroma by one pixel would be seen.
  auto frame = testing::paintedFrame(96, 64, recipe, [](double x, double y) {
    return std::array<double, 3>{0.5 + 0.4 * std::sin(x * 0.2), 0.5, 0.5 + 0.4 * std::cos(y * 0.2)};
  });
  frame.colour.matrix = 1;
  frame.visible = {7, 5, 80, 50};
  frame.presentationWidth = 80;
  frame.presentationHeight = 50;
  const auto raster = scaled(frame, 80, 50);
  for (int y = 4; y < 46; ++y) {
    for (int x = 4; x < 76; ++x) {
      const auto pixel = pixelAt(*raster, x, y);
      EXPECT_NEAR(pixel[0], 255 * (0.5 + 0.4 * std::sin((x + 7) * 0.2)), 4) << x;
      EXPECT_NEAR(pixel[2], 255 * (0.5 + 0.4 * std::cos((y + 5) * 0.2)), 4) << y;
    }
  }
}

TEST(Scaling, NothingFromOutsideTheVisiblePartBleedsIn) {
  // White, but for the two columns at each side, which are black and hidden.
  FrameRecipe recipe;
  recipe.layout = "yuv444p";
  recipe.shiftX = recipe.shiftY = 0;
  auto frame = testing::paintedFrame(40, 20, recipe, [](double x, double) {
    const double value = x < 2 || x >= 38 ? 0 : 1;
    return std::array<double, 3>{value, value, value};
  });
  frame.colour.matrix = 1;
  frame.visible = {2, 0, 36, 20};
  frame.presentationWidth = 36;
  for (const int width : {36, 20, 77}) {
    const auto raster = scaled(frame, width, 20);
    EXPECT_GE(pixelAt(*raster, 0, 10)[1], 254) << width;
    EXPECT_GE(pixelAt(*raster, width - 1, 10)[1], 254) << width;
  }
}

TEST(Scaling, ChromaStandsWhereTheFrameSays) {
  struct Place {
    int location;  // libavutil's AVChromaLocation
    const char* layout;
    double x;
    double y;
  };
  for (const Place& place : std::vector<Place>{{0, "yuv420p", 0, 0.5},
                                               {1, "yuv420p", 0, 0.5},
                                               {2, "yuv420p", 0.5, 0.5},
                                               {3, "yuv420p", 0, 0},
                                               {4, "yuv420p", 0.5, 0},
                                               {5, "yuv420p", 0, 1},
                                               {6, "yuv420p", 0.5, 1},
                                               {0, "yuvj420p", 0.5, 0.5}}) {
    FrameRecipe recipe;
    recipe.layout = place.layout;
    recipe.fullRange = recipe.layout == "yuvj420p";
    auto frame = testing::paintedFrame(
        96, 96, recipe,
        [](double x, double y) {
          return std::array<double, 3>{0.5 + 0.4 * std::sin(x * 0.15), 0.5, 0.5 + 0.4 * std::cos(y * 0.15)};
        },
        place.x, place.y);
    frame.colour.matrix = 1;
    frame.chromaLocation = place.location;
    const auto raster = scaled(frame, 96, 96);
    double errorX = 0;
    double errorY = 0;
    for (int i = 8; i < 88; ++i) {
      errorX += std::fabs(pixelAt(*raster, i, 40)[0] - 255 * (0.5 + 0.4 * std::sin(i * 0.15)));
      errorY += std::fabs(pixelAt(*raster, 40, i)[2] - 255 * (0.5 + 0.4 * std::cos(i * 0.15)));
    }
    // Half a pixel off would make about 4 on the average.
    EXPECT_LT(errorX / 80, 1.5) << place.location << place.layout;
    EXPECT_LT(errorY / 80, 1.5) << place.location << place.layout;
  }
}

/// Frequency grows from the corner: at (x, y) it is x / 480 and y / 480 cycles a pixel.
double zonePlate(double x, double y) {
  return 0.5 + 0.45 * std::cos(kPi * (x * x + y * y) / 480);
}

TEST(Scaling, AZonePlateDoesNotAlias) {
  // A third of the size: frequencies beyond a sixth of a cycle must vanish into gray, which is beyond pixel 80.
  const auto flatness = [](const Bitmap& raster) {
    double most = 0;
    for (int y = 45; y < 80; ++y) {
      for (int x = 45; x < 80; ++x) most = std::max(most, std::fabs(pixelAt(raster, x, y)[1] - 127.5));
    }
    return most;
  };
  EXPECT_LT(flatness(*scaled(grayFrame(zonePlate, 240, 240), 80, 80)), 12);
  EXPECT_LT(flatness(*scaled(*grayPicture(zonePlate, 240, 240), 80, 80)), 12);
  // Not a whole ratio.
  const auto odd = scaled(grayFrame(zonePlate, 240, 240), 71, 71);
  double most = 0;
  for (int i = 45; i < 71; ++i) most = std::max(most, std::fabs(pixelAt(*odd, i, i)[1] - 127.5));
  EXPECT_LT(most, 12);
}

TEST(Scaling, ASolidColourStaysSolidAtEverySize) {
  const auto frame = testing::solidFrame(64, 48, {}, 200, 30, 30);
  auto tagged = frame;
  tagged.colour.matrix = 1;
  for (const Sizes& size : std::vector<Sizes>{{1, 1}, {2, 3}, {64, 48}, {65, 47}, {300, 7}, {7, 300}, {1000, 1000}}) {
    const auto raster = scaled(tagged, size.width, size.height);
    for (int y = 0; y < size.height; y += 3) {
      for (int x = 0; x < size.width; x += 3) {
        EXPECT_LE(testing::largestDifference(pixelAt(*raster, x, y), {200, 30, 30, 255}), 1);
      }
    }
  }
}

TEST(Scaling, VeryLargeReductionsAreAveraged) {
  const auto frame = grayFrame([](double x, double) { return std::fmod(x, 2) < 1 ? 1.0 : 0.0; }, 4000, 20);
  const auto raster = scaled(frame, 3, 2);
  EXPECT_NEAR(pixelAt(*raster, 1, 1)[1], 127, 3);
}

TEST(Scaling, PixelAspectIsTakenFromThePresentationSize) {
  // 720 stored columns shown as 1024: the middle stays the middle, a third stays a third.
  auto frame = grayFrame([](double x, double) { return x < 240 ? 1.0 : 0.0; }, 720, 16);
  frame.presentationWidth = 1024;
  const auto raster = Bitmap::make(1024, 16);
  DrawingContext(*raster).draw(Picture(frame), {0, 0, 1024, 16}, {0, 0, 1024, 16}, CompositeOperation::sourceOver, 1);
  EXPECT_GE(pixelAt(*raster, 338, 8)[1], 250);
  EXPECT_LE(pixelAt(*raster, 345, 8)[1], 5);
}

}  // namespace
}  // namespace vistrelle::platform
