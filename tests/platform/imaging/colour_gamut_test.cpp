#include <gtest/gtest.h>

#include <bit>

#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle::platform {
namespace {

using testing::FrameRecipe;
using testing::largestDifference;
using testing::pixelAt;
using testing::Rgba;
using Rgb = std::array<double, 3>;

Rgba drawnColour(const PlanarImage& frame) {
  const auto raster = Bitmap::make(16, 16);
  EXPECT_TRUE(DrawingContext(*raster).draw(Picture(frame), {0, 0, 16, 16}, {}, CompositeOperation::sourceOver, 1));
  return pixelAt(*raster, 8, 8);
}

double toLight(double coded) {
  return coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
}
double toCoded(double light) {
  return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

/// Chromaticities x and y of red, green, blue and white (ITU-T H.273, table 2).
struct Chromaticities {
  double xy[4][2];
};
constexpr Chromaticities kBt709{{{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}, {0.3127, 0.3290}}};
constexpr Chromaticities kBt2020{{{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}, {0.3127, 0.3290}}};
constexpr Chromaticities kP3{{{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}, {0.3127, 0.3290}}};

using Matrix = std::array<Rgb, 3>;

Rgb times(const Matrix& matrix, const Rgb& value) {
  Rgb result{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) result[i] += matrix[i][j] * value[j];
  }
  return result;
}

Matrix inverse(const Matrix& m) {
  const auto minor = [&m](std::size_t i, std::size_t j) {
    return m[(j + 1) % 3][(i + 1) % 3] * m[(j + 2) % 3][(i + 2) % 3] -
           m[(j + 1) % 3][(i + 2) % 3] * m[(j + 2) % 3][(i + 1) % 3];
  };
  const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(1, 0) + m[0][2] * minor(2, 0);
  Matrix result{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) result[i][j] = minor(i, j) / determinant;
  }
  return result;
}

/// From linear light of these primaries to CIE XYZ (SMPTE RP 177).
Matrix toXyz(const Chromaticities& primaries) {
  Matrix columns{};
  Rgb white{};
  for (std::size_t i = 0; i < 4; ++i) {
    const double x = primaries.xy[i][0];
    const double y = primaries.xy[i][1];
    const Rgb xyz{x / y, 1, (1 - x - y) / y};
    for (std::size_t row = 0; row < 3; ++row) (i < 3 ? columns[row][i] : white[row]) = xyz[row];
  }
  const Rgb scale = times(inverse(columns), white);
  for (auto& row : columns) {
    for (std::size_t j = 0; j < 3; ++j) row[j] *= scale[j];
  }
  return columns;
}

/// Code values 0 to 255 of a BT.709 colour in other primaries.
Rgb inPrimaries(const Rgb& colour, const Chromaticities& primaries) {
  Rgb light{};
  for (std::size_t i = 0; i < 3; ++i) light[i] = toLight(colour[i] / 255);
  Rgb coded = times(inverse(toXyz(primaries)), times(toXyz(kBt709), light));
  for (double& part : coded) part = 255 * toCoded(part);
  return coded;
}

const std::vector<Rgb> kColours{{200, 30, 30}, {30, 200, 30},   {30, 30, 200}, {240, 180, 20},
                                {255, 0, 0},   {128, 128, 128}, {0, 0, 0},     {255, 255, 255}};

TEST(WideGamut, StandardRangeComesOutInBt709Primaries) {
  struct Case {
    int tag;
    Chromaticities primaries;
  };
  for (const Case& gamut : {Case{9, kBt2020}, Case{12, kP3}, Case{11, kP3}}) {
    for (const Rgb& colour : kColours) {
      const Rgb coded = inPrimaries(colour, gamut.primaries);
      FrameRecipe recipe;
      recipe.layout = "yuv444p10le";
      recipe.bits = 10;
      recipe.shiftX = recipe.shiftY = 0;
      recipe.redWeight = 0.2627;
      recipe.blueWeight = 0.0593;
      auto frame = testing::solidFrame(16, 16, recipe, coded[0], coded[1], coded[2]);
      frame.colour = {static_cast<std::uint8_t>(gamut.tag), 14, 9, 1};
      const Rgba wanted{static_cast<int>(colour[0]), static_cast<int>(colour[1]), static_cast<int>(colour[2]), 255};
      EXPECT_LE(largestDifference(drawnColour(frame), wanted), 2) << gamut.tag << " " << colour[0] << " " << colour[1];
    }
  }
}

TEST(WideGamut, NeutralTonesKeepTheirValuesAndOtherPrimariesAreLeftAlone) {
  for (int value = 0; value < 256; value += 15) {
    std::vector<std::uint8_t> bytes(16 * 16 * 3, static_cast<std::uint8_t>(value));
    auto frame = testing::rawFrame("rgb24", 16, 16, 48, bytes);
    frame.colour.primaries = 9;
    EXPECT_LE(largestDifference(drawnColour(frame), {value, value, value, 255}), 1);
  }
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < 256; ++i) bytes.insert(bytes.end(), {200, 30, 90});
  auto frame = testing::rawFrame("rgb24", 16, 16, 48, bytes);
  for (const int tag : {0, 1, 2, 3, 4, 5, 6, 7, 8, 22, 200}) {
    frame.colour.primaries = static_cast<std::uint8_t>(tag);
    EXPECT_EQ(drawnColour(frame), (Rgba{200, 30, 90, 255})) << tag;
  }
}

TEST(Cinema, XyzIsDrawnInItsColours) {
  for (const Rgb& colour : kColours) {
    Rgb light{};
    for (std::size_t i = 0; i < 3; ++i) light[i] = toLight(colour[i] / 255);
    const Rgb xyz = times(toXyz(kBt709), light);
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 256; ++i) {
      for (const double part : xyz) {
        // SMPTE ST 428-1: 4095 (48 / 52.37 x part) ^ (1 / 2.6), in the upper bits of 16.
        const auto code = static_cast<unsigned>(std::lround(4095 * std::pow(part * 48 / 52.37, 1 / 2.6))) << 4;
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(code >> 8)});
      }
    }
    const Rgba wanted{static_cast<int>(colour[0]), static_cast<int>(colour[1]), static_cast<int>(colour[2]), 255};
    EXPECT_LE(largestDifference(drawnColour(testing::rawFrame("xyz12le", 16, 16, 96, bytes)), wanted), 2);
  }
}

TEST(BayerPattern, IsDrawnInItsColours) {
  // Red, green, green, blue: rows of R G and G B.
  for (const int side : {16, 17}) {
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < side; ++y) {
      for (int x = 0; x < side; ++x) {
        bytes.push_back(y % 2 == 0 ? (x % 2 == 0 ? 200 : 100) : (x % 2 == 0 ? 100 : 30));
      }
    }
    const Rgba shown = drawnColour(testing::rawFrame("bayer_rggb8", side, side, side, bytes));
    EXPECT_LE(largestDifference(shown, {200, 100, 30, 255}), 2) << side;
    std::vector<std::uint8_t> wide;
    for (const std::uint8_t value : bytes) wide.insert(wide.end(), {value, value});
    EXPECT_LE(largestDifference(drawnColour(testing::rawFrame("bayer_rggb16le", side, side, 2 * side, wide)),
                                {200, 100, 30, 255}),
              2)
        << side;
  }
}

TEST(FloatingPoint, SamplesAreClippedAndLinearOnesCoded) {
  const auto floats = [](const std::vector<float>& pixel) {
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 256; ++i) {
      for (const float part : pixel) {
        const auto raw = std::bit_cast<std::array<std::uint8_t, 4>>(part);
        bytes.insert(bytes.end(), raw.begin(), raw.end());
      }
    }
    return bytes;
  };
  const auto frameOf = [&](float green, float blue, float red) {
    auto frame = testing::rawFrame("gbrpf32le", 16, 16, 64, floats({green}), floats({blue}));
    auto third = std::make_shared<std::vector<std::uint8_t>>(floats({red}));
    frame.planes[1].rowBytes = 64;
    frame.planes[2] = {third->data(), 64};
    frame.owner = std::make_shared<std::pair<std::shared_ptr<const void>, decltype(third)>>(frame.owner, third);
    return frame;
  };
  EXPECT_EQ(drawnColour(frameOf(0.5F, 3.0F, -1.0F)), (Rgba{0, 128, 255, 255}));
  EXPECT_EQ(drawnColour(frameOf(std::nanf(""), 0.2F, 0.8F)), (Rgba{204, 0, 51, 255}));
  auto linear = frameOf(0.5F, 0.0F, 1.0F);
  linear.colour.transfer = 8;
  EXPECT_EQ(drawnColour(linear), (Rgba{255, 188, 0, 255}));
  EXPECT_EQ(drawnColour(testing::rawFrame("grayf32le", 16, 16, 64, floats({0.25F}))), (Rgba{64, 64, 64, 255}));
}

}  // namespace
}  // namespace vistrelle::platform
