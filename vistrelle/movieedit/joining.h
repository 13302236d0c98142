#pragma once

#include <cstdint>

#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Other speeds and joins without re-encoding.
namespace vistrelle {

/// The whole movie made to last in / out times as long, in whole numbers: 50 and 24 double its length, 25 and 24 change
/// nothing, 24 and 25 leave nothing. Absent for an absent movie, a zero, and a movie that cannot be copied. A
/// composition is itself changed and comes back.
Composition movieToRescale(const Movie& movie, std::int64_t in, std::int64_t out);
/// Writes it as a QuickTime movie.
bool movieToRescaleExport(const Movie& movie, std::int64_t in, std::int64_t out,
                          const platform::OptionalText& destination);

/// Writes `second` behind `first`, or without a second movie the first one `count` times. The destination's extension
/// is exactly "mov" (a QuickTime movie) or "wav" (whose content is nevertheless M4A); any other gives false. A first
/// movie that is a composition is itself changed.
bool moviesConcatenate(const Movie& first, const Movie& second, std::int64_t count,
                       const platform::OptionalText& destination);

}  // namespace vistrelle

#pragma GCC visibility pop
