#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::testing {

using Rgba = std::array<int, 4>;
/// Colour of a pixel, not multiplied by alpha.
using Painter = std::function<Rgba(int x, int y)>;

inline Rgba pixelAt(const platform::Bitmap& raster, int x, int y) {
  const std::uint8_t* pixel = raster.row(y) + 4 * x;
  return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

inline int largestDifference(const Rgba& a, const Rgba& b) {
  int most = 0;
  for (std::size_t i = 0; i < 4; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

inline std::shared_ptr<platform::Bitmap> paintedRaster(int width, int height, const Painter& paint) {
  auto raster = platform::Bitmap::make(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Rgba colour = paint(x, y);
      std::uint8_t* pixel = raster->row(y) + 4 * x;
      for (std::size_t i = 0; i < 3; ++i) pixel[i] = static_cast<std::uint8_t>((colour[i] * colour[3] + 127) / 255);
      pixel[3] = static_cast<std::uint8_t>(colour[3]);
    }
  }
  return raster;
}

inline std::shared_ptr<const platform::Picture> paintedPicture(int width, int height, const Painter& paint) {
  return std::make_shared<platform::Picture>(
      std::shared_ptr<const platform::Bitmap>(paintedRaster(width, height, paint)));
}

/// Something with detail, colour and no symmetry.
inline Rgba scenery(int x, int y) {
  const auto wave = [](double value) { return static_cast<int>(127.5 + 110 * std::sin(value)); };
  return {wave(x * 0.11 + y * 0.03), wave(x * 0.05 - y * 0.09 + 1), wave((x + y) * 0.07 + 2), 255};
}

/// How a frame's samples are made from colours.
struct FrameRecipe {
  std::string layout = "yuv420p";
  int bits = 8;
  int shiftX = 1;
  int shiftY = 1;
  double redWeight = 0.2126;
  double blueWeight = 0.0722;
  bool fullRange = false;
};

/// A planar luma-chroma frame; chroma samples are taken where `chromaX` and `chromaY` put them (luma pixels from the
/// first luma sample; 0 and 0.5 are MPEG-2's). No tags.
inline platform::PlanarImage paintedFrame(int width, int height, const FrameRecipe& recipe,
                                          const std::function<std::array<double, 3>(double x, double y)>& paint,
                                          double chromaX = 0, double chromaY = 0.5) {
  const int chromaWidth = (width + (1 << recipe.shiftX) - 1) >> recipe.shiftX;
  const int chromaHeight = (height + (1 << recipe.shiftY) - 1) >> recipe.shiftY;
  const std::size_t sampleBytes = recipe.bits > 8 ? 2 : 1;
  constexpr std::size_t kPadding = 64;
  struct Planes {
    std::array<std::vector<std::uint8_t>, 3> bytes;
  };
  auto planes = std::make_shared<Planes>();
  platform::PlanarImage image;
  image.layout = recipe.layout;
  image.width = width;
  image.height = height;
  image.visible = {0, 0, static_cast<double>(width), static_cast<double>(height)};
  image.presentationWidth = width;
  image.presentationHeight = height;
  const double unit = recipe.fullRange ? (1 << recipe.bits) - 1 : (1 << (recipe.bits - 8));
  const double green = 1 - recipe.redWeight - recipe.blueWeight;
  for (std::size_t plane = 0; plane < 3; ++plane) {
    const int columns = plane == 0 ? width : chromaWidth;
    const int rows = plane == 0 ? height : chromaHeight;
    const std::size_t rowBytes = static_cast<std::size_t>(columns) * sampleBytes + kPadding;
    auto& bytes = planes->bytes[plane];
    bytes.resize(rowBytes * static_cast<std::size_t>(rows) + kPadding);
    for (int row = 0; row < rows; ++row) {
      for (int column = 0; column < columns; ++column) {
        const double x = plane == 0 ? column : column * (1 << recipe.shiftX) + (recipe.shiftX > 0 ? chromaX : 0);
        const double y = plane == 0 ? row : row * (1 << recipe.shiftY) + (recipe.shiftY > 0 ? chromaY : 0);
        const auto colour = paint(x, y);
        const double luma = recipe.redWeight * colour[0] + green * colour[1] + recipe.blueWeight * colour[2];
        const double blue = (colour[2] - luma) / (2 * (1 - recipe.blueWeight));
        const double red = (colour[0] - luma) / (2 * (1 - recipe.redWeight));
        const double middle = 1 << (recipe.bits - 1);
        double value = 0;
        if (recipe.fullRange) {
          value = plane == 0 ? luma * unit : middle + (plane == 1 ? blue : red) * unit;
        } else {
          value = plane == 0 ? (16 + 219 * luma) * unit : middle + 224 * (plane == 1 ? blue : red) * unit;
        }
        const auto sample =
            static_cast<unsigned>(std::lround(std::clamp(value, 0.0, std::ldexp(1.0, recipe.bits) - 1)));
        std::uint8_t* target =
            &bytes[rowBytes * static_cast<std::size_t>(row) + static_cast<std::size_t>(column) * sampleBytes];
        target[0] = static_cast<std::uint8_t>(sample);
        if (sampleBytes == 2) target[1] = static_cast<std::uint8_t>(sample >> 8);
      }
    }
    image.planes[plane] = {bytes.data(), static_cast<int>(rowBytes)};
  }
  image.owner = planes;
  return image;
}

/// A packed or single-plane frame from raw bytes without padding.
inline platform::PlanarImage rawFrame(const std::string& layout, int width, int height, int rowBytes,
                                      std::vector<std::uint8_t> bytes, std::vector<std::uint8_t> palette = {}) {
  struct Planes {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> palette;
  };
  auto planes = std::make_shared<Planes>(Planes{std::move(bytes), std::move(palette)});
  platform::PlanarImage image;
  image.layout = layout;
  image.width = width;
  image.height = height;
  image.visible = {0, 0, static_cast<double>(width), static_cast<double>(height)};
  image.presentationWidth = width;
  image.presentationHeight = height;
  image.planes[0] = {planes->bytes.data(), rowBytes};
  if (!planes->palette.empty()) image.planes[1] = {planes->palette.data(), 1024};
  image.owner = planes;
  return image;
}

inline platform::PlanarImage solidFrame(int width, int height, const FrameRecipe& recipe, double red, double green,
                                        double blue) {
  return paintedFrame(width, height, recipe, [=](double, double) {
    return std::array<double, 3>{red / 255, green / 255, blue / 255};
  });
}

}  // namespace vistrelle::testing
