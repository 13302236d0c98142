#pragma once

#include <optional>
#include <span>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/movie_metadata.h"
#include "vistrelle/platform/media/track_details.h"

namespace vistrelle::platform {

/// The metadata of a movie as bytes, `most` at most: entries that find no more room are left out.
Data bytesOf(const MovieMetadata& metadata, std::size_t most);
/// Nothing for bytes that are no metadata. Entries whose keys stand for nothing are none.
std::optional<MovieMetadata> metadataFrom(std::span<const std::byte> bytes);

Data bytesOf(const TrackDetails& details);
/// Nothing for bytes that are no details.
std::optional<TrackDetails> detailsFrom(std::span<const std::byte> bytes);

}  // namespace vistrelle::platform
