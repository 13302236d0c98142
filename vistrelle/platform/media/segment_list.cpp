#include "vistrelle/platform/media/segment_list.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

namespace vistrelle::platform {
namespace {

/// `range` without what lies outside [zero, end); nothing when that is all of it. A range without an end ends there.
std::optional<TimeRange> clipped(const TimeRange& range, const MediaTime& end) {
  if (!range.isValid()) return std::nullopt;
  const MediaTime first = std::max(range.start, MediaTime::zero());
  const MediaTime last = std::min(range.end(), end);
  if (!first.isNumeric() || !last.isNumeric() || first >= last) return std::nullopt;
  return TimeRange{first, last - first};
}

}  // namespace

SegmentList::SegmentList(std::vector<Segment> pieces) : segments_(std::move(pieces)) {
  tidy();
}

Segment SegmentList::emptyStretch(const MediaTime& duration) {
  return {nullptr, {MediaTime::zero(), duration}, {MediaTime::zero(), duration}};
}

/// Lays the segments one behind the other again.
void SegmentList::tidy() {
  std::vector<Segment> untidy = std::exchange(segments_, {});
  segments_.reserve(untidy.size());
  for (Segment& segment : untidy) append(std::move(segment));
}

void SegmentList::append(Segment segment) {
  if (segment.target.duration <= MediaTime::zero()) return;
  if (!segment.track && !segments_.empty() && !segments_.back().track) {
    Segment& last = segments_.back();
    last.target.duration = last.target.duration + segment.target.duration;
  } else {
    segment.target.start = end();
    segments_.push_back(std::move(segment));
  }
  if (!segments_.back().track) segments_.back().source = segments_.back().target;
}

/// The place in the list of what begins at `at`, after cutting the segment that runs over it.
std::size_t SegmentList::cutAt(const MediaTime& at) {
  for (std::size_t i = 0; i < segments_.size(); ++i) {
    Segment& segment = segments_[i];
    if (segment.target.start >= at) return i;
    if (!segment.target.contains(at)) continue;
    const MediaTime head = at - segment.target.start;
    const MediaTime sourceHead = scaled(head, segment.source.duration, segment.target.duration);
    Segment tail = segment;
    tail.source = {segment.source.start + sourceHead, segment.source.duration - sourceHead};
    tail.target = {at, segment.target.duration - head};
    segment.source.duration = sourceHead;
    segment.target.duration = head;
    segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(tail));
    return i + 1;
  }
  return segments_.size();
}

SegmentList SegmentList::within(const TimeRange& range) const {
  const std::optional<TimeRange> part = clipped(range, end());
  if (!part) return {};
  SegmentList copy = *this;
  const auto first = static_cast<std::ptrdiff_t>(copy.cutAt(part->start));
  const auto last = static_cast<std::ptrdiff_t>(copy.cutAt(part->end()));
  return SegmentList({copy.segments_.begin() + first, copy.segments_.begin() + last});
}

bool SegmentList::insert(const MediaTime& at, const SegmentList& pieces) {
  if (pieces.segments_.empty()) return true;
  if (!(std::max(at, end()) + pieces.end()).isNumeric()) return false;
  if (at > end()) append(emptyStretch(at - end()));
  if (at >= end()) {
    for (const Segment& piece : pieces.segments_) append(piece);
    return true;
  }
  const std::size_t place = cutAt(at);
  segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(place), pieces.segments_.begin(),
                   pieces.segments_.end());
  tidy();
  return true;
}

void SegmentList::remove(const TimeRange& range) {
  const std::optional<TimeRange> part = clipped(range, end());
  if (!part) return;
  const auto first = static_cast<std::ptrdiff_t>(cutAt(part->start));
  const auto last = static_cast<std::ptrdiff_t>(cutAt(part->end()));
  segments_.erase(segments_.begin() + first, segments_.begin() + last);
  tidy();
}

void SegmentList::scale(const TimeRange& range, const MediaTime& duration) {
  const std::optional<TimeRange> part = clipped(range, end());
  if (!part || !duration.isNumeric() || duration < MediaTime::zero() || duration == range.duration) return;
  if (duration == MediaTime::zero()) return remove(*part);
  if (!(end() + scaled(part->duration, duration, range.duration)).isNumeric()) return;
  const std::size_t first = cutAt(part->start);
  const std::size_t last = cutAt(part->end());
  // The places of the cuts are scaled, not the lengths: what rounding there is does not add up.
  MediaTime place = MediaTime::zero();
  for (std::size_t i = first; i < last; ++i) {
    const MediaTime next = scaled(segments_[i].target.end() - part->start, duration, range.duration);
    segments_[i].target.duration = next - place;
    place = next;
  }
  tidy();
}

}  // namespace vistrelle::platform
