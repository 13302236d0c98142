#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "vistrelle/platform/base/large_memory.h"
#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// Luma, blue difference, red difference and perhaps alpha, all of one size, 16 bits, the frame's samples in the upper
/// bits.
struct FullPlanes {
  int width = 0;
  int height = 0;
  bool hasAlpha = false;
  std::size_t rowSamples = 0;
  LargeMemory samples;  ///< plane after plane

  const std::uint16_t* row(std::size_t plane, int y) const {
    return reinterpret_cast<const std::uint16_t*>(samples.get()) +
           (plane * static_cast<std::size_t>(height) + static_cast<std::size_t>(y)) * rowSamples;
  }
};

/// Whole pixels of the stored planes.
struct PixelWindow {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// Whether the part of the frame can be scaled by moving the plane pointers to its corner.
bool canScaleWindow(const FrameLayout& layout, const PlanarImage& image, const PixelWindow& window, int width,
                    int height);

/// Scales a part of a luma-chroma or gray frame straight from its planes in one pass (bicubic). Chroma is placed by
/// the frame's chroma location; unspecified: at the left as MPEG-2 and later have it, centred for full-range names.
/// Nothing when the scaler refuses or memory is short.
std::optional<FullPlanes> scaleFrame(const PlanarImage& image, const FrameLayout& layout, const PixelWindow& window,
                                     int width, int height);

/// The colours of a frame that has one colour a pixel (Bayer pattern). Nothing when that fails.
std::optional<PlanarImage> withoutPattern(const PlanarImage& image, const FrameLayout& layout);

}  // namespace vistrelle::platform
