#pragma once

#include "vistrelle/platform/media/mov/box_writer.h"
#include "vistrelle/platform/media/mov/movie_writer.h"

namespace vistrelle::platform::mov {

/// Writes the 'stbl' box of a track (14496-12, 8.5 to 8.7).
void writeSampleTable(const WrittenTrack& track, BoxWriter& out);

}  // namespace vistrelle::platform::mov
