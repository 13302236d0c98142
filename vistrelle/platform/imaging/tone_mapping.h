#pragma once

#include <array>
#include <memory>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// Brings PQ and HLG (ITU-R BT.2100) to sRGB: diffuse white of 203 cd/m2 (ITU-R BT.2408) comes out near 235, darker
/// tones keep their light, brighter ones roll off to white at 1,000 cd/m2, which is also where lying metadata would
/// have to be cut. Colours outside sRGB are clipped.
class ToneMapping {
 public:
  /// Empty for every other transfer characteristic.
  static std::unique_ptr<ToneMapping> make(const ColourTags& tags);
  /// Coded red, green, blue (0 to 1), four numbers a pixel, in place; the fourth is left alone.
  void apply(float* rgba, int count) const;

 private:
  explicit ToneMapping(const ColourTags& tags);
  std::array<float, 3> toLight(const float* coded) const;

  bool isHlg_ = false;
  std::array<std::array<float, 3>, 3> toSrgb_{};
  std::vector<float> light_;  ///< coded value to light, 1 being diffuse white (HLG: scene light)
  std::vector<float> coded_;  ///< square root of sRGB light to its coded value
};

}  // namespace vistrelle::platform
