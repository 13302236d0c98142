#pragma once

#include <optional>
#include <vector>

#include "vistrelle/platform/media/media_time.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// Which part of a track's own timeline is on screen when (ISO/IEC 14496-12, 8.6.6). The frame that was on screen at
/// the start of an edit is shown although it began earlier.
///
/// libavformat applies edit lists too, but leaves that frame out and moves what follows so that the first whole frame
/// begins at zero: up to one frame early. So such tracks are read without their edits, and these are applied here.
class FrameEdits {
 public:
  /// Nothing where what libavformat makes of the edits is exact: none, or one that begins with the first sample, empty
  /// ones before it or not; in fragmented movies also one that begins anywhere.
  static std::optional<FrameEdits> of(const mov::Track& track, const mov::MovieHeader& movie);

  /// The time of the track's own timeline that is shown at `time` of the movie. While nothing is shown, the last that
  /// was; before anything was, the first that will be.
  MediaTime mediaAt(const MediaTime& time) const;
  /// Since when the frame of the track's time `frame` is on screen at `time` of the movie.
  MediaTime shownSince(const MediaTime& frame, const MediaTime& time) const;

  /// What of the track's own timeline is on screen during a stretch of the movie's, both of the same length unless one
  /// frame stays all the time: then `media` has none.
  struct Shown {
    TimeRange movie;
    TimeRange media;
  };
  /// Everything that is shown in a range of the movie, in order; between the parts there is nothing.
  std::vector<Shown> shownDuring(const TimeRange& range) const;

 private:
  struct Stretch {
    MediaTime start;  ///< of the movie
    MediaTime end;
    MediaTime media;       ///< shown at `start`
    bool isStill = false;  ///< one frame all the time
  };
  const Stretch& stretchAt(const MediaTime& time) const;

  std::vector<Stretch> stretches_;  ///< never empty
  MediaTime tick_;                  ///< of the track
};

}  // namespace vistrelle::platform
