#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/media/ffmpeg/frame_decoder.h"
#include "vistrelle/platform/media/ffmpeg/frame_packets.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {

/// Decodes the sound of one track from any place on, with the place of every sample.
class SoundDecoder {
 public:
  /// Empty with an error text when the movie cannot be read or holds no sound that can be decoded.
  static std::unique_ptr<SoundDecoder> open(const std::shared_ptr<const MovieTrack>& track, std::string* error);

  /// Samples a second, as decoded.
  int rate() const { return first_->sample_rate; }
  const AVChannelLayout& layout() const { return first_->ch_layout; }
  /// An AVSampleFormat.
  int sampleFormat() const { return first_->format; }

  /// Goes to where the samples from `start` of the movie's timeline on come out right. What is delivered begins there
  /// or earlier.
  bool begin(const MediaTime& start, std::string* error);

  struct Block {
    AvPtr<AVFrame> frame;        ///< empty at the end
    std::int64_t position = 0;   ///< of its first sample on the movie's timeline, in samples
    bool followsDamage = false;  ///< what should be right before could not be decoded
  };
  /// The next samples, without overlap; there may be gaps, so where something is damaged. Nothing with an error text
  /// when nothing can be decoded any more.
  std::optional<Block> next(std::string* error);

 private:
  explicit SoundDecoder(const std::shared_ptr<const MovieTrack>& track);
  bool learnGrid(std::string* error);
  AvPtr<AVFrame> decode(std::string* error);
  std::int64_t positionOf(const AVFrame& frame) const;
  std::int64_t snapped(std::int64_t position) const;

  std::shared_ptr<const MovieTrack> track_;
  FrameStatistics statistics_;
  FramePackets packets_;
  std::unique_ptr<FrameDecoder> decoder_;
  AvPtr<AVFrame> first_;  // what the first samples look like
  bool drained_ = false;
  bool ended_ = false;
  bool lost_ = false;                     // something that was wanted, since the last block
  std::int64_t wantedFrom_ = 0;           // samples before are only there to get the decoder going
  std::optional<std::int64_t> expected_;  // the place after the last sample delivered
  std::int64_t tolerance_ = 2;            // how far a stated time may be off, in samples
  std::int64_t gridOrigin_ = 0;           // blocks begin at this place plus a multiple of
  std::int64_t gridStep_ = 0;             // this many samples; 0 for no known grid
};

}  // namespace vistrelle::platform
