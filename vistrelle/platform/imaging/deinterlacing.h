#pragma once

#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// The frame as it looked at the time of its first field. Where the two fields show different moments (combs), the
/// lines of the second one are made anew from the first along the edges of the picture; where they agree, both stay
/// and the picture keeps its full height. A frame that does not say it is interlaced, one without combs, and layouts
/// whose samples are not whole bytes in this machine's order come back as they are, planes shared.
PlanarImage deinterlaced(const PlanarImage& image, const FrameLayout& layout);

}  // namespace vistrelle::platform
