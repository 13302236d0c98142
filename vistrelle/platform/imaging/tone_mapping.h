#pragma once

#include <array>
#include <memory>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// Brings what is not coded as sRGB or BT.709 to sRGB.
/// PQ and HLG (ITU-R BT.2100): diffuse white of 203 cd/m2 (ITU-R BT.2408) comes out near 235, darker tones keep their
/// light, brighter ones roll off and reach white only where the code ends (10,000 and 1,000 cd/m2), so that no
/// gradient is cut whatever the mastering metadata say; they are not looked at. All three parts take the same factor:
/// hues stay.
/// SDR in BT.2020 or P3 primaries: in linear light to BT.709 primaries; neutral tones keep their code values.
/// Digital cinema's X'Y'Z' (SMPTE ST 428-1) and linear light: to sRGB. Colours outside sRGB are clipped.
class ToneMapping {
 public:
  /// Empty where coded values are shown as they are. `isXyz`: the parts are X', Y' and Z', whatever the tags say.
  static std::unique_ptr<ToneMapping> make(const ColourTags& tags, bool isXyz = false);
  /// Coded red, green, blue (0 to 1), four numbers a pixel, in place; the fourth is left alone.
  void apply(float* rgba, int count) const;

 private:
  enum class Curve { pq, hlg, srgb, cinema, linear };
  ToneMapping(Curve curve, int primaries);
  std::array<float, 3> toLight(const float* coded) const;

  Curve curve_;
  std::array<std::array<float, 3>, 3> toSrgb_{};
  std::vector<float> light_;  ///< coded value to light, 1 being diffuse white (HLG: scene light)
  std::vector<float> coded_;  ///< square root of sRGB light to its coded value
};

}  // namespace vistrelle::platform
