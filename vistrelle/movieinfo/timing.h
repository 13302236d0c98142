#pragma once

#include <cstdint>
#include <optional>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Small questions about a movie's timing and metadata. Each loads the movie at its path into MYMOVIE; "~" is expanded.
namespace vistrelle {

/// Seconds; 0, and MYMOVIE empty, when the movie cannot be read.
float dureeMovie(const platform::OptionalText& path);

/// The audio offsets of a movie: none are measured, so there is never a result.
std::optional<platform::Dictionary> qtOffsetMs(const platform::OptionalText& path);

/// Samples of the movie's first timecode track, all of them read; -12345 when there is nothing to count.
std::int64_t timecodeTrackSampleCount(const platform::OptionalText& path);

/// Logs common metadata, metadata formats, languages of the chapters and lyrics. False, and MYMOVIE empty, when the
/// movie cannot be read.
bool movieInfosLog(const platform::OptionalText& path);

/// Whether the file is larger than 100 megabytes and its extension is in a list that holds "???" and nothing else.
bool isBigFileOfListedType(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
