#pragma once

#include <cstdint>
#include <vector>

#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {

/// Puts a black picture before the first sample of a Motion JPEG track that has empty edits behind others. No edit
/// shows it, but libavformat (5.1) takes the -1 of an empty edit for a time of the media and hands out what lies there,
/// and some packets more, marked as hidden; libavcodec shows Motion JPEG nevertheless. With this picture lasting as
/// long as the longest empty edit such readers show black where nothing is, and no wrong frame anywhere. Does nothing
/// to other tracks, or where there is no encoder.
void addBlankPicture(PlannedTrack& plan);

}  // namespace vistrelle::platform
