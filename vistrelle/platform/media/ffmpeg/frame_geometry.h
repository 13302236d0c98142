#pragma once

#include <memory>
#include <optional>
#include <span>

#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// What the container says about how the frames of a stream are to be shown.
struct FrameShape {
  std::optional<mov::CleanAperture> cleanAperture;
  AVRational pixelAspect{0, 1};            ///< the container's; 0/1 for none
  std::optional<Orientation> orientation;  ///< nothing when the container states none
  int linesBelowBlanking = 0;              ///< where frames may have 32 lines of blanking above so many of picture
  ColourTags colour;                       ///< the container's, for what the frame leaves open
};

/// The orientation of a display matrix: nine values, row by row, as libavutil stores it. A matrix without rotation
/// part (all zero) or shorter than that is no turn at all; angles between the quarter turns go to the nearest one.
Orientation orientationOfMatrix(std::span<const std::int32_t> matrix);

/// The part of a frame of `width` x `height` that a clean aperture leaves (ISO/IEC 14496-12, 12.1.4: its size, and the
/// offset of its centre from the frame's centre), cut to the frame. The whole frame when nothing sensible is left.
PixelRect visibleRect(const mov::CleanAperture& aperture, int width, int height);

/// A decoded frame as planes, nothing copied: the picture keeps the frame.
PlanarImage planarImage(const std::shared_ptr<const AVFrame>& frame, const FrameShape& shape, ApertureMode mode,
                        bool appliesOrientation);

}  // namespace vistrelle::platform
