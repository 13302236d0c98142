#pragma once

#include <optional>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// What a movie header says of the shape of a track's pictures.
struct TrackShape {
  std::optional<mov::CleanAperture> cleanAperture;
  std::optional<mov::PixelAspect> pixelAspect;
};

/// The first sample description's own words ('clap', 'pasp'); what it leaves open the track's aperture boxes ('tapt')
/// tell: the production aperture in relation to the encoded pixels gives the pixels' shape, the clean aperture in
/// relation to the production aperture the part that is shown, in the middle.
TrackShape shapeOf(const mov::Track& track);

/// A clean aperture as a rectangle of `width` x `height` pixels; the whole picture without one.
Rect cleanRect(const std::optional<mov::CleanAperture>& aperture, int width, int height);

/// The size of a picture in the clean aperture mode before rotation: `visible` pixels of that shape, in whole pixels.
Size presentationSize(const Rect& visible, AVRational pixelAspect);

}  // namespace vistrelle::platform
