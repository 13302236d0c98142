#pragma once

#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {

/// Whether a stream's header cannot be true: it states another duration than its samples have together, or samples
/// that lie behind the end of the file.
bool isHeaderDoubtful(const MovieSource& source, int streamIndex);

/// From the start of the first to the end of the last frame or sound that can be decoded; zero when none can, invalid
/// when the movie cannot be read again.
MediaTime decodedDuration(MovieSource& source, int streamIndex);

}  // namespace vistrelle::platform
