#pragma once

extern "C" {
#include <libavutil/rational.h>
}

#include <cstdint>
#include <optional>

#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::platform {

/// Where the frames of a stream lie: either by their presentation times, in ticks of the stream's time base, or, for
/// streams that do not state them all, by their number in presentation order, frames that the container left out
/// included. A "place" below is a tick or a number.
class FrameTimeline {
 public:
  /// Places are ticks; `zero` is the tick that counts as zero.
  static FrameTimeline byTicks(AVRational timeBase, std::int64_t zero);
  /// Places are frame numbers from 0 at the constant `rate`; the first frame is shown at `first`.
  static FrameTimeline byCount(AVRational rate, const MediaTime& first);

  bool isCounted() const { return counted_; }
  /// The last place that is not after `time`: infinities give the ends of the range, nothing for a time that is no
  /// number. Ticks of a millisecond and finer are the precision to which a container knows its times, so the nearest
  /// one is taken; coarser ticks and counted frames are exact, so the place is rounded down.
  std::optional<std::int64_t> placeOf(const MediaTime& time) const;
  MediaTime timeOf(std::int64_t place) const;

 private:
  FrameTimeline() = default;

  bool counted_ = false;
  AVRational unit_{0, 1};  // seconds from one place to the next
  std::int64_t zero_ = 0;
  MediaTime first_;
};

/// The time of so many ticks: an infinity beyond the range of times, invalid for a time base that is none.
MediaTime timeOfTicks(std::int64_t ticks, AVRational timeBase);
/// The ticks nearest to `time`, for offsets between timelines.
std::int64_t ticksNearest(const MediaTime& time, AVRational timeBase);
/// A rate in frames a second as the fraction that was meant: 23.976 is 24000/1001. 0/1 for none.
AVRational rateFromFloat(double framesPerSecond);

}  // namespace vistrelle::platform
