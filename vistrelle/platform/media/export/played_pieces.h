#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {

/// A stretch of a movie's track and where it is played: a segment that is not empty, or where a picture track's edits
/// are applied by us, a part of one. Then `source` is of the track's own timeline, otherwise of the movie's.
struct PlayedPiece {
  std::shared_ptr<const MovieTrack> track;
  TimeRange source;
  TimeRange target;

  /// Whether one frame, that of the source's start, stays all the time.
  bool isStill() const { return source.duration == MediaTime::zero(); }
  /// Whether it plays faster or slower than it was recorded.
  bool isScaled() const { return !isStill() && source.duration != target.duration; }
  /// The moment of the timeline at which `time` of the source is played.
  MediaTime targetOf(const MediaTime& time) const;
};

/// What a track plays, in the order of the timeline: a composition track's segments without the empty ones, all
/// samples of a movie's track. Nothing with an error text where a source is no movie that can be read.
std::optional<std::vector<PlayedPiece>> playedPiecesOf(const std::shared_ptr<Track>& track, std::string* error);

/// The end of the track on the timeline, empty stretches at its end included.
MediaTime endOf(const Track& track);

/// `time` in units of 1/rate, to the nearest.
std::int64_t unitsOf(const MediaTime& time, std::int32_t rate);

}  // namespace vistrelle::platform
