#pragma once

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// What a track's samples cover on the movie's timeline, edit lists applied. Invalid times without samples.
TimeRange rangeOf(const mov::Track& track, const mov::MovieHeader& movie);

/// Samples a second over all samples; 0 without.
float frameRateOf(const mov::Track& track);

MediaType mediaTypeOf(mov::FourCc handler);

/// Whether its samples lie in another file that is named in a way libavformat does not follow.
bool hasUnreachableData(const mov::Track& track);

}  // namespace vistrelle::platform
