#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform {

/// Gives the pictures of a stream, met in decoding order, their times. Where every packet states its presentation time
/// that holds; where one does not (AVI, program streams), the pictures take the stated decoding times in the order in
/// which they are shown, which the pictures' own headers tell, moved to where a stated presentation time lies.
class PictureTimes {
 public:
  /// `numbersFrames`: what the container states are numbers of frames (AVI), not times.
  PictureTimes(const AVCodecParameters& parameters, bool numbersFrames);
  void add(const AVPacket& packet);
  /// Sets presentation and decoding times of the samples, one for each packet added, in ticks of the stream's time base
  /// times `factor`. False when packets state no time at all, or a presentation time too far from its decoding time for
  /// a sample table. Stated times lie within 2^60 of zero, in ticks and times `factor`.
  bool apply(std::vector<mov::Sample>& samples, std::int64_t factor) const;

 private:
  struct ParserDeleter {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  };
  struct Entry {
    std::int64_t pts = 0;
    std::int64_t dts = 0;
    std::int64_t duration = 0;
    std::int32_t order = 0;  ///< picture order count where the coding has one
    bool startsOver = false;
    bool isBetween = false;  ///< a picture shown as soon as it is decoded
  };
  std::vector<std::size_t> shownOrder() const;

  bool numbersFrames_;
  std::unique_ptr<AVCodecParserContext, ParserDeleter> parser_;
  AvPtr<AVCodecContext> context_;
  bool hasOrder_ = false;
  std::vector<Entry> entries_;
};

/// Lays the packets of a sound stream one behind the other by the samples that they hold; where a packet comes later
/// than that by more than half its length, the time it states holds.
class SoundTimes {
 public:
  explicit SoundTimes(int sampleRate) : rate_(sampleRate) {}
  /// The decoding time of a packet of `length` samples, in samples.
  std::int64_t next(const AVPacket& packet, AVRational timeBase, std::int64_t length);

 private:
  int rate_;
  std::optional<std::int64_t> expected_;
};

}  // namespace vistrelle::platform
