#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"

#pragma GCC visibility push(default)

/// What the rest of the system asks again and again about an opened movie. Plain functions, no state; an absent movie
/// (an empty pointer) has no tracks and lasts 0 seconds.
namespace vistrelle {

/// An opened movie; empty for none.
using Movie = std::shared_ptr<platform::Asset>;
/// Tracks of a movie in file order.
using TrackList = std::vector<std::shared_ptr<platform::Track>>;

/// Media type numbers; every other number stands for subtitles.
constexpr std::int64_t kAllTracks = -1;
constexpr std::int64_t kAudioTracks = 0;
constexpr std::int64_t kVideoTracks = 1;

/// All tracks in file order; nothing when there are none.
std::optional<TrackList> movieTracks(const Movie& movie);

/// The tracks of one media type number; nothing when there are none.
std::optional<TrackList> movieTrackTypes(const Movie& movie, std::int64_t type);

/// Tracks that show something: video, and every kind of writing.
TrackList visualTracks(const Movie& movie);

/// The tracks as a log line shows them.
std::string tracksDescription(const TrackList& tracks);

/// Seconds. Any object may be asked: one that is not a movie lasts 0 seconds, with a log line. Not a number when the
/// movie's own duration is not a number.
double movieDuration(const std::shared_ptr<const platform::Opaque>& someMovie);

/// The span of the tracks of one type, in thirds of a second: never starts after zero, and its duration is the latest
/// track end, measured from zero. Invalid when there is no such track.
platform::TimeRange movieTracksTimeRange(const Movie& movie, std::int64_t type);

/// Frames a second of the last video track; 0 when it is not plausible.
float movieFramerate(const Movie& movie);

}  // namespace vistrelle

#pragma GCC visibility pop
