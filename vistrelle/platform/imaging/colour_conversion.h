#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

struct FrameLayout;
class ToneMapping;

/// Turns samples of a frame into sRGB by the frame's own tags. Reserved and unknown code points count as untagged:
/// BT.709 from 720 lines up, BT.601 below. What is not coded as BT.709 or sRGB goes
/// through ToneMapping.
class ColourConversion {
 public:
  ColourConversion(const PlanarImage& image, const FrameLayout& layout);
  ~ColourConversion();
  ColourConversion(const ColourConversion&) = delete;
  ColourConversion& operator=(const ColourConversion&) = delete;

  /// Luma and chroma at full resolution in 16 bits, the frame's samples in the upper bits; one row of opaque RGBA.
  void toRgba8(const std::uint16_t* luma, const std::uint16_t* blue, const std::uint16_t* red, int count,
               std::uint8_t* rgba) const;
  /// The same as colour multiplied by alpha, 0 to 1, four numbers a pixel. No `alpha`: opaque.
  void toFloat(const std::uint16_t* luma, const std::uint16_t* blue, const std::uint16_t* red,
               const std::uint16_t* alpha, int count, float* rgba) const;
  /// Red, green and blue as the frame codes them (full range, 0 to 1), in place, four numbers a pixel.
  void mapTones(float* rgba, int count) const;

 private:
  float lumaScale_ = 0;  ///< coded value to 0..1
  float lumaOffset_ = 0;
  float chromaOffset_ = 0;
  float alphaScale_ = 0;
  /// Rows: red, green, blue; columns: factors of coded chroma (blue difference, red difference).
  std::array<std::array<float, 2>, 3> chroma_{};
  std::unique_ptr<ToneMapping> tones_;  ///< only for PQ and HLG
};

}  // namespace vistrelle::platform
