#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/movie/queries.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/asset.h"

#pragma GCC visibility push(default)

/// A movie's picture sizes and ratios.
namespace vistrelle {

/// Display and pixel aspect ratio, in that order, as "16:9", of a picture shown at dw x dh and stored at ew x eh
/// pixels. Ratios near a usual one get its name. A stored size of 1 x 1 means unknown: square pixels.
std::vector<std::string> qtDarPar(std::int64_t dw, std::int64_t dh, std::int64_t ew, std::int64_t eh);

/// The two under "v0_dar" and "v0_par".
std::optional<platform::Dictionary> qtDarParDico(std::int64_t dw, std::int64_t dh, std::int64_t ew, std::int64_t eh);

/// Loads the movie at `path` into MYMOVIE and measures its picture: "w_width" and "w_height" (natural size), and, when
/// its first frame decodes, "v0_width" and "v0_height" (encoded pixels), "v0_dar" and "v0_par". Nothing when the movie
/// cannot be loaded, has no video track or no picture to give, or no size at all.
std::optional<platform::Dictionary> movieSize(const platform::OptionalText& path);

/// The size at which the movie is meant to be shown, measured on its first frame; zero when there is none.
platform::Size movieApertureSize(const Movie& movie);

}  // namespace vistrelle

#pragma GCC visibility pop
