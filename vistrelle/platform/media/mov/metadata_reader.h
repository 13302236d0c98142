#pragma once

#include <cstddef>
#include <span>

#include "vistrelle/platform/media/movie_metadata.h"

namespace vistrelle::platform::mov {

/// Reads what the content of a 'moov' box says of the movie: QuickTime user data and item lists ('udta'), 3GPP asset
/// boxes, QuickTime metadata ('meta' with 'keys'). 1,000 entries and values of 1 MiB at most; others are left out.
MovieMetadata readMovieMetadata(std::span<const std::uint8_t> movie);

/// How many items all lists ('ilst') inside a box's content hold, at whatever depth up to 16.
std::size_t metadataItemCount(std::span<const std::uint8_t> content);

}  // namespace vistrelle::platform::mov
