#include "vistrelle/platform/imaging/palette.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

using Colour8 = std::array<std::uint8_t, 3>;

constexpr std::size_t kMostColours = 256;
constexpr int kHalfOpaque = 128;
constexpr int kCellBits = 5;  // of each component in the histogram
constexpr std::size_t kCells = std::size_t{1} << (3 * kCellBits);

std::uint32_t keyOf(const Colour8& colour) {
  return static_cast<std::uint32_t>(colour[0] << 16 | colour[1] << 8 | colour[2]);
}

std::size_t cellOf(const Colour8& colour) {
  constexpr int kDrop = 8 - kCellBits;
  return static_cast<std::size_t>((colour[0] >> kDrop) << (2 * kCellBits) | (colour[1] >> kDrop) << kCellBits |
                                  colour[2] >> kDrop);
}

/// Pixels that fall together in one cell of the colour cube.
struct Cell {
  std::int64_t count = 0;
  std::array<std::int64_t, 3> sum{};
  double mean(std::size_t part) const { return static_cast<double>(sum[part]) / static_cast<double>(count); }
};

struct Box {
  std::size_t first = 0;  ///< range of cells
  std::size_t last = 0;
  std::size_t widest = 0;  ///< component in which it varies most
  double spread = 0;       ///< squared error in that component
};

Box boxOf(const std::vector<Cell>& cells, std::size_t first, std::size_t last) {
  Box box{first, last};
  for (std::size_t part = 0; part < 3; ++part) {
    double count = 0;
    double sum = 0;
    double squares = 0;
    for (std::size_t i = first; i < last; ++i) {
      const auto weight = static_cast<double>(cells[i].count);
      const double value = cells[i].mean(part);
      count += weight;
      sum += weight * value;
      squares += weight * value * value;
    }
    const double spread = squares - sum * sum / count;
    if (spread > box.spread) {
      box.spread = spread;
      box.widest = part;
    }
  }
  return box;
}

std::size_t nearestColour(const std::vector<Colour8>& colours, const std::array<int, 3>& wanted) {
  std::size_t best = 0;
  int least = std::numeric_limits<int>::max();
  for (std::size_t i = 0; i < colours.size(); ++i) {
    int distance = 0;
    for (std::size_t part = 0; part < 3; ++part) {
      const int difference = wanted[part] - colours[i][part];
      distance += difference * difference;
    }
    if (distance >= least) continue;
    least = distance;
    best = i;
  }
  return best;
}

Colour8 meanOf(const Cell& cell) {
  Colour8 colour{};
  for (std::size_t part = 0; part < 3; ++part) colour[part] = static_cast<std::uint8_t>(std::lround(cell.mean(part)));
  return colour;
}

/// Moves every colour to the mean of the cells that are nearest to it (Lloyd's iteration).
void refine(std::vector<Colour8>& colours, const std::vector<Cell>& cells) {
  constexpr int kRounds = 4;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<Cell> near(colours.size());
    for (const Cell& cell : cells) {
      const Colour8 mean = meanOf(cell);
      Cell& sum = near[nearestColour(colours, {mean[0], mean[1], mean[2]})];
      sum.count += cell.count;
      for (std::size_t part = 0; part < 3; ++part) sum.sum[part] += cell.sum[part];
    }
    for (std::size_t i = 0; i < colours.size(); ++i) {
      if (near[i].count > 0) colours[i] = meanOf(near[i]);
    }
  }
}

/// The nearest colour of a palette; answers are remembered for cells of four code values a side.
class Nearest {
 public:
  explicit Nearest(const std::vector<Colour8>& colours) : colours_(colours), known_(kKnown, kUnknown) {}

  std::uint8_t find(const Colour8& colour) {
    constexpr int kDrop = 8 - kBits;
    const std::size_t place = static_cast<std::size_t>((colour[0] >> kDrop) << (2 * kBits) |
                                                       (colour[1] >> kDrop) << kBits | colour[2] >> kDrop);
    std::int16_t& known = known_[place];
    if (known == kUnknown) {
      const auto middle = [](int value) { return (value >> kDrop << kDrop) + (1 << kDrop) / 2; };
      known =
          static_cast<std::int16_t>(nearestColour(colours_, {middle(colour[0]), middle(colour[1]), middle(colour[2])}));
    }
    return static_cast<std::uint8_t>(known);
  }

 private:
  static constexpr int kBits = 6;
  static constexpr std::size_t kKnown = std::size_t{1} << (3 * kBits);
  static constexpr std::int16_t kUnknown = -1;

  const std::vector<Colour8>& colours_;
  std::vector<std::int16_t> known_;
};

/// Cuts the box with the largest error at its mean until there are enough boxes.
std::vector<Colour8> medianCut(std::vector<Cell> cells, std::size_t most) {
  std::vector<Box> boxes{boxOf(cells, 0, cells.size())};
  while (boxes.size() < most) {
    const auto worst =
        std::max_element(boxes.begin(), boxes.end(), [](const Box& a, const Box& b) { return a.spread < b.spread; });
    if (worst->spread <= 0 || worst->last - worst->first < 2) break;
    const Box box = *worst;
    Cell all;
    for (std::size_t i = box.first; i < box.last; ++i) {
      all.count += cells[i].count;
      all.sum[box.widest] += cells[i].sum[box.widest];
    }
    const double cut = all.mean(box.widest);
    const auto begin = cells.begin();
    const auto middle = std::stable_partition(begin + static_cast<std::ptrdiff_t>(box.first),
                                              begin + static_cast<std::ptrdiff_t>(box.last),
                                              [&](const Cell& cell) { return cell.mean(box.widest) <= cut; });
    const auto split = static_cast<std::size_t>(middle - begin);
    if (split == box.first || split == box.last) break;
    *worst = boxOf(cells, box.first, split);
    boxes.push_back(boxOf(cells, split, box.last));
  }
  std::vector<Colour8> colours;
  for (const Box& box : boxes) {
    Cell all;
    for (std::size_t i = box.first; i < box.last; ++i) {
      all.count += cells[i].count;
      for (std::size_t part = 0; part < 3; ++part) all.sum[part] += cells[i].sum[part];
    }
    colours.push_back(meanOf(all));
  }
  refine(colours, cells);
  return colours;
}

/// Rows of opaque colours and which pixels are transparent.
class Rows {
 public:
  explicit Rows(const Bitmap& raster) : raster_(raster), buffer_(raster.rowBytes()) {}
  void select(int y) { unpremultiply(raster_.row(y), raster_.width(), buffer_.data()); }
  bool isTransparent(std::size_t x) const { return buffer_[4 * x + 3] < kHalfOpaque; }
  Colour8 colour(std::size_t x) const { return {buffer_[4 * x], buffer_[4 * x + 1], buffer_[4 * x + 2]}; }

 private:
  const Bitmap& raster_;
  std::vector<std::uint8_t> buffer_;
};

struct Survey {
  std::vector<Cell> cells;                      ///< only those in use
  std::map<std::uint32_t, std::uint8_t> exact;  ///< index of each colour while there are few enough
  bool isExact = true;
  bool hasTransparent = false;
};

Survey survey(const Bitmap& raster) {
  Survey found;
  std::vector<Cell> all(kCells);
  Rows rows(raster);
  const auto width = static_cast<std::size_t>(raster.width());
  for (int y = 0; y < raster.height(); ++y) {
    rows.select(y);
    for (std::size_t x = 0; x < width; ++x) {
      if (rows.isTransparent(x)) {
        found.hasTransparent = true;
        continue;
      }
      const Colour8 colour = rows.colour(x);
      Cell& cell = all[cellOf(colour)];
      ++cell.count;
      for (std::size_t part = 0; part < 3; ++part) cell.sum[part] += colour[part];
      if (!found.isExact) continue;
      found.exact.emplace(keyOf(colour), std::uint8_t{0});
      found.isExact = found.exact.size() <= kMostColours;
    }
  }
  found.isExact = found.isExact && found.exact.size() + (found.hasTransparent ? 1 : 0) <= kMostColours;
  std::copy_if(all.begin(), all.end(), std::back_inserter(found.cells),
               [](const Cell& cell) { return cell.count > 0; });
  return found;
}

void indexExactly(const Bitmap& raster, Survey& found, IndexedPicture& result) {
  for (auto& [key, index] : found.exact) {
    index = static_cast<std::uint8_t>(result.colours.size());
    result.colours.push_back(
        {static_cast<std::uint8_t>(key >> 16), static_cast<std::uint8_t>(key >> 8), static_cast<std::uint8_t>(key)});
  }
  Rows rows(raster);
  const auto width = static_cast<std::size_t>(raster.width());
  for (int y = 0; y < raster.height(); ++y) {
    rows.select(y);
    for (std::size_t x = 0; x < width; ++x) {
      result.indices.push_back(rows.isTransparent(x) ? static_cast<std::uint8_t>(found.exact.size())
                                                     : found.exact.at(keyOf(rows.colour(x))));
    }
  }
}

void indexWithDiffusion(const Bitmap& raster, IndexedPicture& result, std::uint8_t transparent) {
  Nearest nearest(result.colours);
  Rows rows(raster);
  const auto width = static_cast<std::size_t>(raster.width());
  using Error = std::array<int, 3>;  // sixteenths
  std::vector<Error> current(width + 2);
  std::vector<Error> next(width + 2);
  for (int y = 0; y < raster.height(); ++y) {
    rows.select(y);
    std::fill(next.begin(), next.end(), Error{});
    for (std::size_t x = 0; x < width; ++x) {
      if (rows.isTransparent(x)) {
        result.indices.push_back(transparent);
        continue;
      }
      Colour8 wanted = rows.colour(x);
      for (std::size_t part = 0; part < 3; ++part) {
        wanted[part] = static_cast<std::uint8_t>(std::clamp(wanted[part] + current[x + 1][part] / 16, 0, 255));
      }
      const std::uint8_t index = nearest.find(wanted);
      result.indices.push_back(index);
      for (std::size_t part = 0; part < 3; ++part) {
        const int error = wanted[part] - result.colours[index][part];
        current[x + 2][part] += error * 7;
        next[x][part] += error * 3;
        next[x + 1][part] += error * 5;
        next[x + 2][part] += error;
      }
    }
    std::swap(current, next);
  }
}

}  // namespace

IndexedPicture reduceColours(const Bitmap& raster) {
  IndexedPicture result;
  result.indices.reserve(raster.rowBytes() / 4 * static_cast<std::size_t>(raster.height()));
  Survey found = survey(raster);
  if (found.isExact) {
    indexExactly(raster, found, result);
  } else {
    result.colours = medianCut(std::move(found.cells), kMostColours - (found.hasTransparent ? 1 : 0));
    indexWithDiffusion(raster, result, static_cast<std::uint8_t>(result.colours.size()));
  }
  if (found.hasTransparent) {
    result.transparentIndex = static_cast<int>(result.colours.size());
    result.colours.push_back({0, 0, 0});
  }
  return result;
}

}  // namespace vistrelle::platform
