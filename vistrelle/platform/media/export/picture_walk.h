#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/media/export/played_pieces.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/frame_plan.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"
#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

namespace vistrelle::platform {

/// One frame after another of a movie's picture track, from any place on.
class PictureDecoder {
 public:
  /// Empty with an error text when the movie cannot be read.
  static std::unique_ptr<PictureDecoder> open(const std::shared_ptr<const MovieTrack>& track, std::string* error);

  struct Picture {
    std::shared_ptr<const AVFrame> frame;  ///< empty at the end
    MediaTime time;                        ///< when it appears on the movie's timeline
    bool isDamaged = false;                ///< it, or what it leans on, could not be decoded as it was recorded
    bool followsLoss = false;              ///< frames between the one before and this one could not be decoded at all
  };
  /// Goes to the frame that is on screen at `start`, or to the first where all are later. False with an error text.
  bool begin(const MediaTime& start, const MediaTime& end, std::string* error);
  /// Damaged frames come as the decoder conceals them; where it gives none the one before stays. Nothing with an error
  /// text when the movie cannot be read or ends long before the end that was given to begin().
  std::optional<Picture> next(std::string* error);

  const FrameShape& shape() const { return shape_; }
  /// The nine values of the display matrix as libavutil stores them; empty when the movie has none.
  std::span<const std::uint8_t> displayMatrix() const { return matrix_; }
  /// The length of one unit that all its frames' times are multiples of, counted from zero().
  MediaTime unit() const { return timeline_->timeOf(1) - timeline_->timeOf(0); }
  MediaTime zero() const { return timeline_->timeOf(0); }

 private:
  explicit PictureDecoder(const std::shared_ptr<const MovieTrack>& track);
  bool prepare(std::string* error);
  bool findFirst(std::int64_t place, bool fromStart, bool* again, std::string* error);
  std::optional<std::shared_ptr<const Frame>> pull(std::string* error);
  Picture assess(const Frame& frame, const MediaTime& time);

  std::shared_ptr<const MovieTrack> track_;
  FrameStatistics statistics_;
  FramePlan plan_;
  FrameRun run_;
  FrameShape shape_;
  std::vector<std::uint8_t> matrix_;
  std::optional<FrameTimeline> timeline_;
  std::shared_ptr<const Frame> first_;  // to be delivered first
  std::shared_ptr<const Frame> next_;   // after that
  MediaTime end_;
  MediaTime lastEnd_;
  FrameDamage damage_;  // as counted with the last frame delivered
  bool leansOnDamage_ = false;
  bool lacksFrames_ = false;  // packets were refused, and where their frames would be has not come yet
};

/// The pictures of one track's timeline in order.
class PictureWalk {
 public:
  explicit PictureWalk(std::vector<PlayedPiece> pieces) : pieces_(std::move(pieces)) {}

  struct Shown {
    std::shared_ptr<const AVFrame> frame;  ///< empty: nothing is shown
    MediaTime start;
    MediaTime end;
    const PictureDecoder* decoder = nullptr;
    bool isDamaged = false;  ///< its source is damaged there
  };
  /// The next stretch of the timeline, empty ones between pieces included; a stretch that ends where it starts has no
  /// frame and is the end of all. Within a piece the last frame stays to its end, and the first is there from its
  /// beginning. Nothing with an error text.
  std::optional<Shown> next(std::string* error);
  /// The number of units a second in which all times can be told exactly, or nearly so where none below ten million
  /// does. Opens all sources. 0 with an error text.
  std::int32_t timeScale(std::string* error);

 private:
  PictureDecoder* decoderFor(const PlayedPiece& piece, std::string* error);

  std::vector<PlayedPiece> pieces_;
  std::size_t current_ = 0;
  bool begun_ = false;
  MediaTime position_ = MediaTime::invalid();
  PictureDecoder::Picture held_;
  std::unique_ptr<PictureDecoder> decoder_;
  const MovieTrack* decoded_ = nullptr;
};

}  // namespace vistrelle::platform
