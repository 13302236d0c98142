#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/media/information_clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"

/// Movies whose pixels tell where they come from, and the tool's pictures of them.
namespace vistrelle::testing {

using Colour = std::array<int, 3>;
using Extent = std::pair<int, int>;  ///< width and height

inline int noiseAt(int x, int y) {
  const unsigned mixed =
      (static_cast<unsigned>(x) * 2654435761U + static_cast<unsigned>(y) * 2246822519U) ^ 0x9E3779B9U;
  return static_cast<int>((mixed ^ mixed >> 15) * 2654435761U >> 24);
}

/// Red is twice the column, green twice the row: every pixel names its place (up to 127). Blue is noise, without which
/// pictures are too small to be kept.
inline Colour placeColour(int x, int y) {
  return {2 * x, 2 * y, noiseAt(x, y)};
}

/// Clockwise from the upper left.
constexpr std::array<Colour, 4> kCorners{{{200, 40, 40}, {40, 190, 40}, {50, 50, 210}, {220, 190, 30}}};

/// Four corners of a quarter of each side, noise of gray between them. `turn` moves the colours on clockwise.
inline Colour cornerColour(int x, int y, const Extent& size, int turn = 0) {
  const auto [width, height] = size;
  const bool left = x < width / 4;
  const bool right = x >= width - width / 4;
  const bool top = y < height / 4;
  const bool bottom = y >= height - height / 4;
  const int gray = 16 + noiseAt(x, y) * 7 / 8;
  if ((!left && !right) || (!top && !bottom)) return {gray, gray, gray};
  const int corner = top ? (left ? 0 : 1) : (left ? 3 : 2);
  return kCorners[static_cast<std::size_t>((corner + 4 - turn) % 4)];
}

/// The colours of one pixel after the other, row by row.
inline std::string rawPixels(const Extent& size, const std::function<Colour(int x, int y)>& paint) {
  std::string bytes;
  for (int y = 0; y < size.second; ++y) {
    for (int x = 0; x < size.first; ++x) {
      for (const int part : paint(x, y)) bytes += static_cast<char>(part);
    }
  }
  return bytes;
}

/// How planes of luma and two differences hold colours, with the weights of BT.601 and 8 bits.
struct PlaneLayout {
  std::string name;  ///< ffmpeg's
  int shiftX = 0;
  int shiftY = 0;
  bool isFullRange = false;
};

/// A difference of colours is the mean of the pixels that are there; a cell at the edge may have fewer.
inline std::string rawPlanes(const Extent& size, const PlaneLayout& layout,
                             const std::function<Colour(int x, int y)>& paint) {
  const auto [width, height] = size;
  const auto codeOf = [&](const Colour& colour, int plane) {
    const double luma = 0.299 * colour[0] + 0.587 * colour[1] + 0.114 * colour[2];
    const double scale = layout.isFullRange ? 1 : (plane == 0 ? 219 : 224) / 255.0;
    if (plane == 0) return luma * scale + (layout.isFullRange ? 0 : 16);
    return 128 + scale * (plane == 1 ? (colour[2] - luma) / 1.772 : (colour[0] - luma) / 1.402);
  };
  std::string bytes;
  for (int plane = 0; plane < 3; ++plane) {
    const int stepX = plane == 0 ? 1 : 1 << layout.shiftX;
    const int stepY = plane == 0 ? 1 : 1 << layout.shiftY;
    for (int top = 0; top < height; top += stepY) {
      for (int left = 0; left < width; left += stepX) {
        double sum = 0;
        int count = 0;
        for (int y = top; y < std::min(top + stepY, height); ++y) {
          for (int x = left; x < std::min(left + stepX, width); ++x, ++count) sum += codeOf(paint(x, y), plane);
        }
        bytes += static_cast<char>(std::lround(sum / count));
      }
    }
  }
  return bytes;
}

class ShapeMovies : public ::testing::Test {
 protected:
  /// A movie that shows one frame for a second, three times over.
  std::string movieOf(const std::string& raw, const Extent& size, const std::string& name,
                      const std::vector<std::string>& options, const std::string& layout = "rgb24") {
    const std::string input = folder.write("raw", raw + raw + raw);
    const std::vector<std::string> head{
        "-f", "rawvideo", "-pix_fmt", layout, "-s", std::to_string(size.first) + "x" + std::to_string(size.second),
        "-r", "3",        "-i",       input};
    return makeClip(folder, name, head + options);
  }

  std::string placesMovie(const Extent& size, const std::string& name, const std::vector<std::string>& options) {
    return movieOf(rawPixels(size, placeColour), size, name, options);
  }

  struct Shot {
    std::shared_ptr<const platform::Picture> picture;
    std::vector<Extent> shown;  ///< the size of each picture before it was scaled
    const platform::Bitmap& raster() const { return *picture->bitmap(); }
    Colour at(int x, int y) const {
      const std::uint8_t* pixel = raster().row(y) + 4 * x;
      return {pixel[0], pixel[1], pixel[2]};
    }
  };

  /// The tool's picture of the first frame, in this size.
  Shot shoot(const std::string& movie, const Extent& size, const std::string& time = "0",
             const std::string& extension = "png") {
    const std::string out = folder.file("shot." + extension);
    std::filesystem::remove(out);
    const RunResult run = runTool({"-i", movie, "-o", out, "-w", std::to_string(size.first), "-h",
                                   std::to_string(size.second), "-tc", time, "-y", "-v"});
    EXPECT_EQ(run.status, 0) << movie << run.error;
    Shot shot{platform::Picture::load(out), shownSizes(run.error)};
    if (!shot.picture || shot.picture->bitmap() == nullptr) throw std::runtime_error("no picture of " + movie);
    EXPECT_EQ(Extent(shot.raster().width(), shot.raster().height()), size);
    return shot;
  }

  static std::vector<Extent> shownSizes(const std::string& log) {
    const std::string mark = "Mirelund img        : picture ";
    std::vector<Extent> sizes;
    for (std::size_t at = log.find(mark); at != std::string::npos; at = log.find(mark, at + 1)) {
      std::istringstream words(log.substr(at + mark.size(), 40));
      Extent size;
      std::string by;
      if (words >> size.first >> by >> size.second) sizes.push_back(size);
    }
    return sizes;
  }

  ScratchFolder folder;
};

inline int farthest(const Colour& a, const Colour& b) {
  int most = 0;
  for (std::size_t i = 0; i < 3; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

}  // namespace vistrelle::testing
