#pragma once

#include <memory>

#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/imaging/resampler.h"

namespace vistrelle::platform {

std::unique_ptr<RowSource> bitmapRows(const Bitmap& bitmap);
/// Rows of a frame's stored planes, before its orientation, alpha multiplied in, in sRGB. Empty when the layout cannot
/// be read. The frame must be drawable and outlive the source.
std::unique_ptr<RowSource> frameRows(const PlanarImage& image, const FrameLayout& layout);

}  // namespace vistrelle::platform
