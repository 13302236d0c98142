#pragma once

#include <mutex>

#include "vistrelle/platform/media/segment_list.h"

namespace vistrelle::platform {

/// What `range` of `track` consists of: one segment from the beginning of its samples on with an empty stretch before
/// it, or the pieces of a composition's track. It ends with the samples or with the range.
SegmentList piecesOf(const std::shared_ptr<Track>& track, const TimeRange& range);

/// A track that a composition makes. Every call may come from any thread.
class SegmentTrack : public CompositionTrack {
 public:
  SegmentTrack(std::int32_t id, MediaType type, SegmentList pieces = {});

  std::string description() const override;
  std::int32_t trackId() const override { return id_; }
  MediaType mediaType() const override { return type_; }
  OptionalText mediaTypeCode() const override;
  std::vector<FormatDescription> formatDescriptions() const override;
  Size naturalSize() const override;
  bool isEnabled() const override;
  TimeRange timeRange() const override;
  float nominalFrameRate() const override;
  bool isDecodable() const override;
  bool isProtected() const override;
  TrackDetails details() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() const override;

  bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track, const MediaTime& at,
                       std::string* error) override;
  void removeTimeRange(const TimeRange& range) override;
  void scaleTimeRange(const TimeRange& range, const MediaTime& duration) override;
  std::vector<Segment> segments() const override { return pieces().segments(); }

  SegmentList pieces() const;
  MediaTime end() const;
  bool isEmpty() const;
  /// Lays `pieces` at `at`, with an empty stretch behind them where something follows, so that it moves by `length`.
  void lay(SegmentList pieces, const MediaTime& at, const MediaTime& length);
  /// An empty stretch as far as `end` where the track is shorter.
  void extendTo(const MediaTime& end);

 private:
  /// Nothing when all is empty.
  std::shared_ptr<Track> firstSource() const;
  /// The sources of what is not empty, repeats included.
  std::vector<std::shared_ptr<Track>> sources() const;

  const std::int32_t id_;
  const MediaType type_;
  mutable std::mutex mutex_;
  SegmentList pieces_;
};

}  // namespace vistrelle::platform
