#pragma once

#include <vector>

#include "vistrelle/platform/media/composition.h"

namespace vistrelle::platform {

/// Segments that follow each other without gaps from zero on; none lasts nothing, and no two empty ones are neighbours.
/// Every edit keeps times exact as far as 32-bit scales can say them (see MediaTime) and moves what follows it.
class SegmentList {
 public:
  SegmentList() = default;
  /// `pieces` in order; only their tracks, sources and lengths count.
  explicit SegmentList(std::vector<Segment> pieces);

  static Segment emptyStretch(const MediaTime& duration);

  const std::vector<Segment>& segments() const { return segments_; }
  MediaTime end() const { return segments_.empty() ? MediaTime::zero() : segments_.back().target.end(); }

  /// What lies in `range`, as a list of its own: its beginning lies at zero. What is beyond the end is missing.
  SegmentList within(const TimeRange& range) const;
  /// Puts `pieces` at `at`; an empty stretch leads there from an end that lies before it. False, and nothing changed,
  /// when the list would be longer than a time can say.
  bool insert(const MediaTime& at, const SegmentList& pieces);
  /// Takes what lies in `range` out.
  void remove(const TimeRange& range);
  /// Makes `range` last `duration`, and what there is of it in proportion; what then lasts nothing is gone. A duration
  /// below zero or not a number changes nothing.
  void scale(const TimeRange& range, const MediaTime& duration);

 private:
  std::size_t cutAt(const MediaTime& at);
  void tidy();
  /// Behind what there is, which is tidy.
  void append(Segment segment);

  std::vector<Segment> segments_;
};

}  // namespace vistrelle::platform
