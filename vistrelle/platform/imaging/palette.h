#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// A raster reduced to at most 256 colours.
struct IndexedPicture {
  std::vector<std::array<std::uint8_t, 3>> colours;
  std::vector<std::uint8_t> indices;  ///< rows without padding
  int transparentIndex = -1;          ///< its colour stands in `colours`; -1: every pixel is opaque
};

/// Exact when the raster has few enough colours; else by median cut with error diffusion (Floyd and Steinberg). Pixels
/// less than half opaque become transparent, the others opaque in their own colour.
IndexedPicture reduceColours(const Bitmap& raster);

}  // namespace vistrelle::platform
