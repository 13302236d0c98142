#pragma once

#include <string>

#include "vistrelle/platform/media/export/passthrough.h"

namespace vistrelle::platform {

/// Writes `asset` (a movie or a composition) as a QuickTime movie into the empty open file `fd`: its first enabled
/// picture track as ProRes 422, its sound tracks mixed into one as 16-bit PCM.
///
/// Every frame of the timeline is written once, at its own time. A stretch without picture between two pieces is one
/// black frame; before the first and after the last piece there is nothing. Frames keep the size of the first one
/// (others are scaled to it), its pixel aspect, colour tags and field order; rotation and clean aperture stay facts of
/// the track. Transparency is dropped: ProRes 422 has none.
/// False with an error text, also for a movie without picture and sound; the file's content is then worthless.
bool writeProRes(Asset& asset, int fd, const ExportControl& control, std::string* error);

}  // namespace vistrelle::platform
