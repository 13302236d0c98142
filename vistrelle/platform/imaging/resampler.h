#pragma once

#include <cstddef>
#include <cstdint>

namespace vistrelle::platform {

/// One axis of a scaled drawing. The destination interval [d0, d1) shows the source interval [s0, s1); the pixels
/// first to last - 1 are made. Sample j covers [j, j + 1); no sample outside [lowest, highest] is looked at.
struct AxisMap {
  double d0 = 0;
  double d1 = 0;
  double s0 = 0;
  double s1 = 0;
  int first = 0;
  int last = 0;
  int lowest = 0;
  int highest = 0;

  int count() const { return last - first; }
  /// How much of pixel `index` (counted from `first`) the destination interval covers, 0 to 1.
  float coverage(int index) const;
};

/// Delivers rows of a source as colour multiplied by alpha, 0 to 1, four numbers a pixel.
class RowSource {
 public:
  virtual ~RowSource() = default;
  /// Columns `first` to `last` of row `y`.
  virtual void read(int y, int first, int last, float* rgba) = 0;
};

/// The cubic kernel of all scaling (B = 0, C = 0.5: Catmull and Rom's, exact for parabolas).
inline constexpr double kCubicSharpness = 0.5;

/// Scales with a bicubic kernel that is widened when the picture shrinks, so that nothing aliases, and writes RGBA
/// rows, colour multiplied by alpha; `rowBytes` apart. Positions are exact to fractions of a pixel.
void resample(RowSource& source, const AxisMap& x, const AxisMap& y, std::uint8_t* target, std::size_t rowBytes);

}  // namespace vistrelle::platform
