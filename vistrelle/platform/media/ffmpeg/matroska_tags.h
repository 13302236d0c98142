#pragma once

#include <cstddef>
#include <cstdint>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// How many tags (RFC 9559, 5.1.8: 'SimpleTag', those inside others included) a Matroska file has in its first 16 MiB
/// of tags; 0 for other files.
std::size_t matroskaTagCount(std::int64_t size, const mov::ReadAt& readAt);

}  // namespace vistrelle::platform
