#pragma once

#include <cstdint>

#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Cutting without re-encoding: a composition is edited and then written in pass-through.
namespace vistrelle {

/// Copies the whole of `movie` into a new composition and puts it into MYMOVIEEDIT. A copy whose length differs from
/// the movie's by a tenth of a second or more is refused and the slot left as it was. True when the slot holds a
/// composition afterwards, an earlier one included; false when the movie is absent or could not be copied.
bool getMYMOVIEEDIT(const Movie& movie);

/// The same copy without the slot: absent when it is refused. A composition comes back itself, not copied.
Composition mutableCompositionOf(const Movie& movie);

/// Removes the range that begins at `first` and lasts `second`, both in 1/timescale seconds, from a composition. True
/// when the new length is within a second of what the old one less (second - first) gives: the check takes `second`
/// for an end, so the two agree only for a range that begins at zero or runs past the end. What was removed stays
/// removed either way. A movie that is not a composition is left alone and gives false.
bool movieCut(const Movie& composition, std::int64_t first, std::int64_t second, std::int64_t timescale);

/// Writes the stretch of the movie at `source` that begins at `start` seconds (taken to the tenth, none below 0.1) and
/// ends `keep` seconds into what then remains (0: with the movie) to `destination` as a QuickTime movie; all of it when
/// keep - start is more than its length. An existing destination is removed before the export, unless it is the source
/// itself, which the export replaces at its end; a folder that holds the source is refused. True when the destination
/// exists afterwards. Fills MYMOVIE and MYMOVIEEDIT; the latter keeps the cut movie on success.
bool movieCutForceSize(const platform::OptionalText& source, const platform::OptionalText& destination,
                       std::int64_t keep, double start);

}  // namespace vistrelle

#pragma GCC visibility pop
