#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {

/// A stretch of a movie's track and where it is played: a segment that is not empty.
struct Piece {
  std::shared_ptr<const MovieTrack> track;
  TimeRange source;
  TimeRange target;

  /// Whether it plays faster or slower than it was recorded.
  bool isScaled() const { return source.duration != target.duration; }
  /// The moment of the timeline at which `time` of the source is played.
  MediaTime targetOf(const MediaTime& time) const;
};

/// What a track plays, in the order of the timeline: a composition track's segments without the empty ones, all
/// samples of a movie's track. Nothing with an error text where a source is no movie that can be read.
std::optional<std::vector<Piece>> piecesOf(const std::shared_ptr<Track>& track, std::string* error);

/// The end of the track on the timeline, empty stretches at its end included.
MediaTime endOf(const Track& track);

/// `time` in units of 1/rate, to the nearest.
std::int64_t unitsOf(const MediaTime& time, std::int32_t rate);

}  // namespace vistrelle::platform
