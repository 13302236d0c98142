#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"

namespace vistrelle::platform {

/// A piece of a composition track: `source` of a track laid over `target` of the composition's timeline.
/// An empty stretch has no track.
struct Segment {
  std::shared_ptr<Track> track;
  TimeRange source;
  TimeRange target;
};

/// A track made of segments that follow each other without gaps.
class CompositionTrack : public Track {
 public:
  /// Inserts `range` of `track` at `at`; later segments move back. Beyond the end an empty stretch fills the gap.
  /// False with an error text when the range is invalid, `at` is not a number, or the media types differ.
  virtual bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track, const MediaTime& at,
                               std::string* error) = 0;
  /// Takes `range` of the composition's timeline out; what follows moves forward. Parts outside it are ignored.
  virtual void removeTimeRange(const TimeRange& range) = 0;
  /// Makes what lies in `range` last `duration`; what follows moves. Sources keep their ranges, targets change.
  virtual void scaleTimeRange(const TimeRange& range, const MediaTime& duration) = 0;
  virtual std::vector<Segment> segments() const = 0;
};

/// A movie put together from tracks of other movies; loaded at once, its duration exact.
class Composition : public Asset {
 public:
  static std::shared_ptr<Composition> make();
  /// `preferredId` 0 lets the composition choose the track's number.
  virtual std::shared_ptr<CompositionTrack> addMutableTrack(MediaType type, std::int32_t preferredId) = 0;
  /// Inserts `range` of every track of `asset` at `at`, each into the first of this composition's tracks of its media
  /// type that is free for it, else into a new one; all tracks stay in step. A movie may be inserted into itself.
  /// False with an error text, and nothing changed, when the range or the time is invalid or the movie has no track.
  virtual bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Asset>& asset, const MediaTime& at,
                               std::string* error) = 0;
  /// The same on all tracks.
  virtual void removeTimeRange(const TimeRange& range) = 0;
  virtual void scaleTimeRange(const TimeRange& range, const MediaTime& duration) = 0;
  virtual std::shared_ptr<Composition> copy() const = 0;
};

}  // namespace vistrelle::platform
