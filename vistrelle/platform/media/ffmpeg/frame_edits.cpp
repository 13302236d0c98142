#include "vistrelle/platform/media/ffmpeg/frame_edits.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace vistrelle::platform {
namespace {

constexpr std::uint32_t kGreatestScale = std::numeric_limits<std::int32_t>::max();

bool isLibavformatExact(const mov::Track& track, const mov::MovieHeader& movie) {
  const auto isMedia = [](const mov::Edit& edit) { return edit.mediaTime >= 0; };
  const auto first = std::find_if(track.edits.begin(), track.edits.end(), isMedia);
  if (first == track.edits.end()) return true;
  if (std::next(first) != track.edits.end() || first->rate == 0) return false;
  return movie.fragmentCount > 0 || first->mediaTime == track.samples.firstPresentation;
}

MediaTime timeOf(std::uint64_t value, std::uint32_t scale) {
  const auto limited = std::min<std::uint64_t>(value, std::numeric_limits<std::int64_t>::max());
  return MediaTime::make(static_cast<std::int64_t>(limited), static_cast<std::int32_t>(scale));
}

}  // namespace

std::optional<FrameEdits> FrameEdits::of(const mov::Track& track, const mov::MovieHeader& movie) {
  const auto isScale = [](std::uint32_t scale) { return scale > 0 && scale <= kGreatestScale; };
  if (!isScale(track.timeScale) || !isScale(movie.timeScale) || isLibavformatExact(track, movie)) return std::nullopt;
  FrameEdits edits;
  edits.tick_ = timeOf(1, track.timeScale);
  MediaTime position = MediaTime::zero();
  for (const mov::Edit& edit : track.edits) {
    const bool isOpen = edit.mediaTime >= 0 && edit.duration == 0;
    const MediaTime end = isOpen ? MediaTime::positiveInfinity() : position + timeOf(edit.duration, movie.timeScale);
    if (edit.mediaTime >= 0) {
      const MediaTime media = timeOf(static_cast<std::uint64_t>(edit.mediaTime), track.timeScale);
      edits.stretches_.push_back({position, end, media, edit.rate == 0});
    }
    if (isOpen) break;
    position = end;
  }
  return edits;
}

const FrameEdits::Stretch& FrameEdits::stretchAt(const MediaTime& time) const {
  const auto after = std::find_if(stretches_.begin(), stretches_.end(),
                                  [&time](const Stretch& stretch) { return stretch.start > time; });
  return after == stretches_.begin() ? stretches_.front() : *std::prev(after);
}

MediaTime FrameEdits::mediaAt(const MediaTime& time) const {
  if (!time.isNumeric() && compare(time, MediaTime::positiveInfinity()) != 0 &&
      compare(time, MediaTime::negativeInfinity()) != 0) {
    return time;
  }
  const Stretch& stretch = stretchAt(time);
  if (stretch.isStill || time <= stretch.start) return stretch.media;
  if (time < stretch.end || !stretch.end.isNumeric()) return stretch.media + (time - stretch.start);
  return stretch.media + (stretch.end - stretch.start) - tick_;
}

MediaTime FrameEdits::shownSince(const MediaTime& frame, const MediaTime& time) const {
  const Stretch& stretch = stretchAt(time);
  return std::max(stretch.start, stretch.start + (frame - stretch.media));
}

std::vector<FrameEdits::Shown> FrameEdits::shownDuring(const TimeRange& range) const {
  std::vector<Shown> shown;
  for (const Stretch& stretch : stretches_) {
    const MediaTime start = std::max(stretch.start, range.start);
    const MediaTime end = std::min(stretch.end, range.end());
    if (start >= end) continue;
    const MediaTime length = end - start;
    const MediaTime media = stretch.isStill ? stretch.media : stretch.media + (start - stretch.start);
    shown.push_back({{start, length}, {media, stretch.isStill ? MediaTime::zero() : length}});
  }
  return shown;
}

}  // namespace vistrelle::platform
