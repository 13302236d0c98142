#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {

/// Fills a timecode track with samples made anew: each stands for a stretch of a piece and holds the frame number that
/// the source has where the stretch begins (QuickTime File Format, "Timecode Media"). False with an error text when a
/// sample of the source cannot be read.
bool makeTimecodes(PlannedTrack& plan, std::vector<std::int64_t>& mediaTimes, std::string* error);

}  // namespace vistrelle::platform
