#pragma once

#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle {

/// The movie's information as JSON text for other programs: an object with the entries of `qtInfos` under
/// "information", the movie's own facts under "movie" and one object a track under "tracks". The keys are stable and
/// listed in docs/information.md; a fact that the movie does not state is null. Text that is not valid UTF-8 comes out
/// with U+FFFD in its place. A movie that cannot be read, or is absent, gives "{}". Loads the movie into MYMOVIE.
std::string movieInfosJson(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
