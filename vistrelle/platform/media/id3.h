#pragma once

#include <cstdint>

#include "vistrelle/platform/media/mov/movie_header.h"
#include "vistrelle/platform/media/movie_metadata.h"

namespace vistrelle::platform {

/// Reads an ID3 tag of version 2.2, 2.3 or 2.4 at the start of a file: text frames, comments, lyrics and pictures.
/// Tags of more than 16 MiB and frames of more than 1 MiB are left out. False when there is no tag.
bool readId3(std::int64_t size, const mov::ReadAt& readAt, MovieMetadata& metadata);

}  // namespace vistrelle::platform
