#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Several movies side by side.
namespace vistrelle {

/// One composition with every video and every audio track of the movies at `paths`, each in a track of its own from
/// zero on; it lasts as long as its longest track. Paths that do not exist and movies that cannot be opened are left
/// out; absent when no path exists.
///
/// `offsets` moves the sound: "a0_id" names a number n, "a<n>_offsetMs" the milliseconds. More than 0 delays every
/// audio track. Less than 0 cuts that much and one millisecond more off the first audio track of the first movie that
/// has one, by way of the file "audioCutted.mov" in the private temporary folder, which stays there. "v_offsetMs" is
/// only logged. Fills MYMOVIE with the last movie and empties MYMOVIEVIEW; a cut empties MYMOVIEEDIT.
Composition muxAvQt(const std::optional<std::vector<std::string>>& paths,
                    const std::optional<platform::Dictionary>& offsets);
/// Writes it as a QuickTime movie.
bool muxAvQtExport(const std::optional<std::vector<std::string>>& paths, const platform::OptionalText& destination,
                   const std::optional<platform::Dictionary>& offsets);

}  // namespace vistrelle

#pragma GCC visibility pop
