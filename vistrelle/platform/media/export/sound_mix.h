#pragma once

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/export/damage_log.h"
#include "vistrelle/platform/media/export/played_pieces.h"
#include "vistrelle/platform/media/export/sound_decoder.h"

namespace vistrelle::platform {

/// The form that sound is brought into: planes of floats. One to eight channels in their native order.
struct SoundFormat {
  int rate = 0;
  AVChannelLayout layout{};
};

struct SwrDeleter {
  void operator()(SwrContext* context) const { swr_free(&context); }
};

/// The sound of one track's timeline, from zero on, without gaps.
class SoundTrack {
 public:
  SoundTrack(std::vector<PlayedPiece> pieces, const SoundFormat& format)
      : pieces_(std::move(pieces)), format_(format) {}

  /// Adds the next `count` samples to the planes. False with an error text.
  bool addTo(const std::vector<float*>& planes, int count, std::string* error);
  /// Nothing more is wanted.
  void finish() { damage_.finish(); }

 private:
  bool beginPiece(std::string* error);
  bool fill(std::size_t count, std::string* error);
  bool convert(const std::uint8_t* const* samples, std::int64_t count, std::string* error);
  bool feedSilence(std::int64_t count, std::string* error);
  bool feedBlock(const SoundDecoder::Block& block, std::string* error);
  void noteDamage(std::int64_t from, std::int64_t to);
  std::size_t kept() const { return ready_.empty() ? 0 : ready_.front().size() - taken_; }

  std::vector<PlayedPiece> pieces_;
  SoundFormat format_;
  std::size_t current_ = 0;    // of pieces_
  bool begun_ = false;         // the current piece
  std::int64_t position_ = 0;  // on the timeline, in samples of format_
  std::unique_ptr<SoundDecoder> decoder_;
  const MovieTrack* decoded_ = nullptr;
  std::unique_ptr<SwrContext, SwrDeleter> converter_;
  std::int64_t fed_ = 0;        // the source's next sample that the converter is to get
  std::int64_t sourceEnd_ = 0;  // one beyond the last one
  std::int64_t statedEnd_ = 0;  // what the source promises to have
  bool drained_ = false;
  DamageLog damage_{"sound"};
  std::vector<std::vector<float>> ready_;  // converted, by channel
  std::size_t taken_ = 0;
};

/// The enabled sound tracks of a movie (the first where none is enabled) added up, each at full volume.
class SoundMix {
 public:
  struct Wishes {
    int mostChannels = 8;
    std::vector<int> rates;  ///< those that can be written; empty for all
  };
  /// Empty without an error text for a movie without sound, with one when its sound cannot be read.
  static std::unique_ptr<SoundMix> open(const Asset& asset, const Wishes& wishes, std::string* error);

  const SoundFormat& format() const { return format_; }
  /// How many samples the timeline has, up to the end of the longest sound track.
  std::int64_t length() const { return length_; }
  /// The next samples as planes of floats from -1 to 1; `frame` has no samples at the end. False with an error text.
  bool read(AVFrame& frame, int atMost, std::string* error);

 private:
  SoundFormat format_;
  std::int64_t length_ = 0;
  std::int64_t position_ = 0;
  std::vector<std::unique_ptr<SoundTrack>> tracks_;
};

}  // namespace vistrelle::platform
