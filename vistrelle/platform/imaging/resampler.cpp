#include "vistrelle/platform/imaging/resampler.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr double kSupport = 2;

/// Keys' cubic convolution kernel.
double cubic(double distance) {
  const double x = std::fabs(distance);
  if (x < 1) return ((2 - kCubicSharpness) * x + kCubicSharpness - 3) * x * x + 1;
  if (x < 2) return ((-kCubicSharpness * x + 5 * kCubicSharpness) * x - 8 * kCubicSharpness) * x + 4 * kCubicSharpness;
  return 0;
}

/// The samples that make one destination pixel.
struct Taps {
  int first = 0;
  std::vector<float> weights;
  int last() const { return first + static_cast<int>(weights.size()) - 1; }
};

Taps tapsAt(const AxisMap& map, int pixel) {
  const double ratio = (map.s1 - map.s0) / (map.d1 - map.d0);
  // Of a destination much thinner than a pixel the ratio knows no bounds: wider than the source, or farther from it
  // than the kernel reaches, changes nothing, and whole numbers hold it.
  const double stretch = std::clamp(ratio, 1.0, map.highest - map.lowest + 1.0);
  const double reach = kSupport * stretch;
  const double centre =
      std::clamp(map.s0 + (pixel + 0.5 - map.d0) * ratio - 0.5, map.lowest - reach, map.highest + reach);
  const int from = static_cast<int>(std::ceil(centre - reach));
  const int to = static_cast<int>(std::floor(centre + reach));
  Taps taps;
  taps.first = std::clamp(from, map.lowest, map.highest);
  taps.weights.resize(static_cast<std::size_t>(std::clamp(to, map.lowest, map.highest) - taps.first + 1));
  double sum = 0;
  for (int sample = from; sample <= to; ++sample) sum += cubic((sample - centre) / stretch);
  for (int sample = from; sample <= to; ++sample) {
    const int used = std::clamp(sample, taps.first, taps.last());
    taps.weights[static_cast<std::size_t>(used - taps.first)] +=
        static_cast<float>(cubic((sample - centre) / stretch) / sum);
  }
  return taps;
}

std::vector<Taps> tapsOf(const AxisMap& map) {
  std::vector<Taps> all;
  all.reserve(static_cast<std::size_t>(map.count()));
  for (int pixel = map.first; pixel < map.last; ++pixel) all.push_back(tapsAt(map, pixel));
  return all;
}

/// Keeps the rows that the vertical kernel still needs, scaled horizontally.
class RowWindow {
 public:
  RowWindow(RowSource& source, const AxisMap& x, std::size_t rows)
      : source_(source), columns_(tapsOf(x)), rows_(rows), width_(columns_.size() * 4), scaled_(rows * width_) {
    for (const Taps& taps : columns_) {
      first_ = std::min(first_, taps.first);
      last_ = std::max(last_, taps.last());
    }
    input_.resize(static_cast<std::size_t>(last_ - first_ + 1) * 4);
  }

  std::size_t width() const { return width_; }

  const float* row(int y) {
    float* scaled = &scaled_[static_cast<std::size_t>(y) % rows_ * width_];
    if (y >= next_) {
      next_ = y + 1;
      source_.read(y, first_, last_, input_.data());
      scale(scaled);
    }
    return scaled;
  }

 private:
  void scale(float* out) const {
    for (const Taps& taps : columns_) {
      const float* in = &input_[static_cast<std::size_t>(taps.first - first_) * 4];
      float sum[4] = {0, 0, 0, 0};
      for (const float weight : taps.weights) {
        for (int part = 0; part < 4; ++part) sum[part] += in[part] * weight;
        in += 4;
      }
      for (int part = 0; part < 4; ++part) out[part] = sum[part];
      out += 4;
    }
  }

  RowSource& source_;
  std::vector<Taps> columns_;
  std::size_t rows_;
  std::size_t width_;
  std::vector<float> scaled_;
  std::vector<float> input_;
  int first_ = INT32_MAX;
  int last_ = INT32_MIN;
  int next_ = INT32_MIN;
};

/// The kernel may overshoot: alpha is brought back to 0..1, colour to 0..alpha.
void store(const std::vector<float>& sums, std::uint8_t* target) {
  for (std::size_t i = 0; i < sums.size(); i += 4) {
    const float alpha = std::clamp(sums[i + 3], 0.0F, 1.0F);
    for (std::size_t part = 0; part < 3; ++part) {
      target[i + part] = static_cast<std::uint8_t>(std::clamp(sums[i + part], 0.0F, alpha) * 255.0F + 0.5F);
    }
    target[i + 3] = static_cast<std::uint8_t>(alpha * 255.0F + 0.5F);
  }
}

}  // namespace

float AxisMap::coverage(int index) const {
  const double left = std::max(d0, static_cast<double>(first + index));
  const double right = std::min(d1, static_cast<double>(first + index + 1));
  return static_cast<float>(std::clamp(right - left, 0.0, 1.0));
}

void resample(RowSource& source, const AxisMap& x, const AxisMap& y, std::uint8_t* target, std::size_t rowBytes) {
  const std::vector<Taps> rows = tapsOf(y);
  std::size_t most = 1;
  for (const Taps& taps : rows) most = std::max(most, taps.weights.size());
  RowWindow window(source, x, most);
  std::vector<float> sums(window.width());
  for (const Taps& taps : rows) {
    std::fill(sums.begin(), sums.end(), 0.0F);
    int line = taps.first;
    for (const float weight : taps.weights) {
      const float* in = window.row(line++);
      for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += in[i] * weight;
    }
    store(sums, target);
    target += rowBytes;
  }
}

}  // namespace vistrelle::platform
