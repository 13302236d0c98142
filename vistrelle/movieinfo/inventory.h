#pragma once

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// The information dictionary of a movie. Both operations load the movie into MYMOVIE and leave it there.
namespace vistrelle {

/// "w_duration" (whole seconds), "v0_fps", "v0_codec" and "a0_codec" (of the last video and the last audio track), and
/// "toto<index>_mediaAttributes" for each track of any other media type. Empty when the movie cannot be read or holds a
/// track with a protected codec.
platform::Dictionary infosQtMovieTrack(const platform::OptionalText& path);

/// The same with the entries of qtOffsetMs and of movieSize, later entries replacing earlier ones.
platform::Dictionary qtInfos(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
