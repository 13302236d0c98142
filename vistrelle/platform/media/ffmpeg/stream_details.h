#pragma once

#include "vistrelle/platform/media/ffmpeg/movie_source.h"
#include "vistrelle/platform/media/track_details.h"

namespace vistrelle::platform {

/// The details of a stream: what the container says and what its first frame adds. Where the header's duration cannot
/// be true the whole stream is decoded.
TrackDetails detailsOf(MovieSource& source, int streamIndex);

}  // namespace vistrelle::platform
