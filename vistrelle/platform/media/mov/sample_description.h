#pragma once

#include <span>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// Reads the content of an 'stsd' box (14496-12, 8.5.2 and 12): every entry's type, size, clean
/// aperture and pixel aspect (256 entries at most), the first entry's data reference, and whether any is protected. The
/// handler must be known.
void readSampleDescriptions(std::span<const std::uint8_t> content, Track& track);

}  // namespace vistrelle::platform::mov
