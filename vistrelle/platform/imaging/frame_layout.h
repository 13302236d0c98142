#pragma once

#include <optional>
#include <string>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// What the drawing code must know of a frame's pixel layout.
struct FrameLayout {
  int format = -1;         ///< libavutil's number; the "yuvj" names are folded into their "yuv" twins
  bool isRgb = false;      ///< red, green and blue samples or a palette; else luma and chroma, or luma alone
  bool isGray = false;     ///< no chroma
  bool isXyz = false;      ///< X', Y' and Z' in place of red, green and blue
  bool isBayer = false;    ///< one colour a pixel in a pattern; read like RGB
  bool isFloat = false;    ///< samples are 32-bit floating-point numbers, 1 being white; read like RGB
  bool hasAlpha = false;   ///< not multiplied into the colour
  bool fullRange = false;  ///< by the frame's tag, else by the layout
  bool croppable = true;   ///< moving the plane pointers crops it; not so when luma and subsampled chroma share a
                           ///< plane (yuyv422) or a byte holds several pixels
  int depth = 8;           ///< significant bits of a sample
  int chromaShiftX = 0;    ///< log2 of the chroma subsampling
  int chromaShiftY = 0;
};

/// Nothing for an unknown layout and for those without plain samples (hardware surfaces, half floats).
std::optional<FrameLayout> frameLayout(const PlanarImage& image);

/// Whether the frame can be drawn: known layout, all planes there and wide enough, sizes sane, something visible.
bool isDrawable(const PlanarImage& image);

}  // namespace vistrelle::platform
