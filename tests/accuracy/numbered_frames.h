#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::testing {

/// When which number is on screen, by the arguments a movie was made with (tests/data/make_numbered.sh).
struct NumberTruth {
  struct Entry {
    double seconds = 0;
    int number = 0;
  };
  std::vector<Entry> entries;

  static NumberTruth load(const std::string& path) {
    NumberTruth truth;
    std::ifstream lines(path);
    for (Entry entry; lines >> entry.seconds >> entry.number;) truth.entries.push_back(entry);
    return truth;
  }

  int numberAt(double seconds) const {
    constexpr double kRounding = 1e-5;  // the truth has six decimals
    int number = entries.front().number;
    for (const Entry& entry : entries) {
      if (entry.seconds <= seconds + kRounding) number = entry.number;
    }
    return number;
  }
};

/// The number that a picture of a numbered frame shows, at any size. Nothing when it cannot be read with certainty: a
/// cell that is neither dark nor bright, or bits that contradict their inverse.
inline std::optional<int> numberIn(const platform::Bitmap& raster) {
  constexpr int kBits = 10;
  constexpr double kDark = 100;
  constexpr double kBright = 155;
  const auto meanOf = [&](int column, int row) {
    // The middle half of the cell.
    const int left = static_cast<int>((column + 0.25) * raster.width() / kBits);
    const int right = static_cast<int>((column + 0.75) * raster.width() / kBits);
    const int top = static_cast<int>((row + 0.25) * raster.height() / 3);
    const int bottom = static_cast<int>((row + 0.75) * raster.height() / 3);
    double sum = 0;
    for (int y = top; y < bottom; ++y) {
      for (int x = left; x < right; ++x) sum += raster.row(y)[4 * x + 1];
    }
    return sum / std::max(1, (right - left) * (bottom - top));
  };
  int number = 0;
  for (int bit = 0; bit < kBits; ++bit) {
    const double upper = meanOf(bit, 0);
    const double lower = meanOf(bit, 1);
    const bool isOne = upper > kBright && lower < kDark;
    const bool isZero = upper < kDark && lower > kBright;
    if (!isOne && !isZero) return std::nullopt;
    if (isOne) number |= 1 << bit;
  }
  return number;
}

inline std::optional<int> numberInFile(const std::string& path) {
  const auto picture = platform::Picture::load(path);
  if (!picture || picture->bitmap() == nullptr) return std::nullopt;
  return numberIn(*picture->bitmap());
}

}  // namespace vistrelle::testing
