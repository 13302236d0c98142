#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// A piece of a composition track: `source` of a track laid over `target` of the composition's timeline. Where their
/// lengths differ the source plays faster or slower, evenly. The track is never one of a composition: what is inserted
/// from there is laid down as pieces of its own sources. An empty stretch has no track and its source is its target.
struct Segment {
  std::shared_ptr<Track> track;
  TimeRange source;
  TimeRange target;
};

/// A track made of segments that follow each other without gaps, the first from zero on. Its facts are those of its
/// sources: code and natural size of the first, the descriptions of all in order without repeats, enabled when one of
/// them is (or it has none), frames a second over all that is not empty, further details of the first.
/// Times stay exact while a 32-bit scale can say them; beyond that they are rounded by less than a nanosecond or to
/// the finer of two scales, and flagged. An edit whose result no time can say is not made.
class CompositionTrack : public Track {
 public:
  /// Inserts `range` of `track` at `at`; later segments move back. Beyond the end an empty stretch fills the gap.
  /// The range is clipped to what the source has: it ends with the source's samples, and where it begins before them
  /// an empty stretch keeps their distance. What lies wholly outside them inserts nothing and is no error.
  /// False with an error text when the range is invalid, `at` is not a number, or the media types differ.
  virtual bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track, const MediaTime& at,
                               std::string* error) = 0;
  /// Takes `range` of the composition's timeline out; what follows moves forward. Parts outside it are ignored.
  virtual void removeTimeRange(const TimeRange& range) = 0;
  /// Makes what lies in `range` last `duration`; what follows moves. Sources keep their ranges, targets change.
  /// Where the track ends within `range`, what it has of it is scaled in the same proportion. What is to last nothing
  /// goes; a duration below zero changes nothing.
  virtual void scaleTimeRange(const TimeRange& range, const MediaTime& duration) = 0;
  virtual std::vector<Segment> segments() const = 0;
};

/// A movie put together from tracks of other movies; loaded at once, its duration exact: the end of its longest track.
/// Its pictures are those of its first enabled video track that is not empty, else of its first one.
class Composition : public Asset {
 public:
  static std::shared_ptr<Composition> make();
  /// `preferredId` 0 lets the composition choose the track's number.
  virtual std::shared_ptr<CompositionTrack> addMutableTrack(MediaType type, std::int32_t preferredId) = 0;
  /// Its tracks as tracks that can be edited, in their order.
  virtual std::vector<std::shared_ptr<CompositionTrack>> mutableTracks() const = 0;
  /// Inserts `range` of every track of `asset` at `at`, each into the first of this composition's tracks of its media
  /// type and code that is free for it, else into a new one (with the number it has there, where that is free); all
  /// tracks stay in step. A movie may be inserted into itself. The range is clipped to the movie's duration; tracks
  /// that are shorter are filled up with empty stretches wherever something follows, and so is the first one when
  /// otherwise the whole would be shorter than the range. False with an error text, and nothing changed, when the range
  /// or the time is invalid or the movie has no track.
  virtual bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Asset>& asset, const MediaTime& at,
                               std::string* error) = 0;
  /// The same on all tracks.
  virtual void removeTimeRange(const TimeRange& range) = 0;
  virtual void scaleTimeRange(const TimeRange& range, const MediaTime& duration) = 0;
  virtual std::shared_ptr<Composition> copy() const = 0;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
