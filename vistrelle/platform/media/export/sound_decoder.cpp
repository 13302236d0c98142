#include "vistrelle/platform/media/export/sound_decoder.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/played_pieces.h"
#include "vistrelle/platform/media/ffmpeg/frame_landing.h"
#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

namespace vistrelle::platform {
namespace {

// Decoders lean on what came before: an overlap of one block in AAC, a bit reservoir of several frames in MP3, filters
// that take 80 ms to settle in Opus.
const MediaTime kLeadIn = MediaTime::make(3, 10);
constexpr int kRefusalsBeforeSound = 32;
constexpr int kRefusalsInARow = 64;

bool needsLeadIn(AVCodecID codec) {
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec);
  return descriptor == nullptr || (descriptor->props & AV_CODEC_PROP_LOSSY) != 0;
}

}  // namespace

SoundDecoder::SoundDecoder(const std::shared_ptr<const MovieTrack>& track)
    : track_(track), packets_(track->source(), track->facts().index, statistics_) {}

std::unique_ptr<SoundDecoder> SoundDecoder::open(const std::shared_ptr<const MovieTrack>& track, std::string* error) {
  std::unique_ptr<SoundDecoder> decoder(new SoundDecoder(track));
  if (!decoder->packets_.restart()) {
    *error = decoder->packets_.failure();
    return nullptr;
  }
  decoder->decoder_ =
      FrameDecoder::open(*track->facts().parameters, decoder->packets_.stream()->time_base,
                         FrameDecoder::Threading::one, 1, false, error, track->source()->interrupt()->limits);
  if (!decoder->decoder_ || !decoder->learnGrid(error)) return nullptr;
  return decoder;
}

/// Looks at the first two blocks: the samples' form and, for containers whose times are coarser than samples, the grid
/// that the blocks lie on, so that a place in the middle is known to the sample too.
bool SoundDecoder::learnGrid(std::string* error) {
  AvPtr<AVFrame> frame = decode(error);
  if (!frame || frame->sample_rate <= 0 || frame->ch_layout.nb_channels <= 0) {
    if (error->empty()) *error = "the movie's sound cannot be decoded";
    return false;
  }
  first_ = std::move(frame);
  const AVRational timeBase = packets_.stream()->time_base;
  const std::int64_t tick = av_rescale_rnd(rate(), timeBase.num, timeBase.den, AV_ROUND_UP);
  tolerance_ = 2 * std::max<std::int64_t>(tick, 1);
  if (tick <= 1) return true;
  const std::int64_t origin = positionOf(*first_) + first_->nb_samples;
  std::string ignored;
  const AvPtr<AVFrame> second = decode(&ignored);
  if (!second || second->nb_samples <= tolerance_) return true;
  gridOrigin_ = origin;
  gridStep_ = second->nb_samples;
  return true;
}

bool SoundDecoder::begin(const MediaTime& start, std::string* error) {
  const AVRational timeBase = packets_.stream()->time_base;
  const MovieSource& source = *track_->source();
  MediaTime landing = start + source.zero();
  if (needsLeadIn(packets_.codec())) landing = landing - kLeadIn;
  const LandingRules rules = landingRules(*track_->source(), track_->facts().index, packets_);
  Landing landed;
  if (!landOnKey(packets_, rules, ticksNearest(landing, timeBase), &landed)) {
    *error = packets_.failure();
    return false;
  }
  decoder_->flush();
  drained_ = ended_ = lost_ = false;
  expected_.reset();
  wantedFrom_ = unitsOf(start, rate());
  return true;
}

AvPtr<AVFrame> SoundDecoder::decode(std::string* error) {
  AvPtr<AVFrame> frame(av_frame_alloc());
  for (int refusals = 0; frame;) {
    switch (decoder_->receive(*frame)) {
      case FrameDecoder::Status::frame:
        if (frame->nb_samples > 0 && (frame->flags & AV_FRAME_FLAG_DISCARD) == 0) return frame;
        av_frame_unref(frame.get());
        continue;
      case FrameDecoder::Status::end:
        return nullptr;
      case FrameDecoder::Status::error:
        break;
      case FrameDecoder::Status::needsPacket: {
        if (packets_.queue().empty() && !packets_.readMore() && !packets_.failure().empty()) {
          *error = packets_.failure();
          return nullptr;
        }
        const AvPtr<AVPacket> packet = packets_.takeFirst();
        if (decoder_->send(packet.get(), false) || !packet) continue;
        break;
      }
    }
    // What only leads in may be undecodable, and so may the torn beginning of a recording.
    lost_ |= expected_ && *expected_ >= wantedFrom_;
    if (++refusals > (lost_ ? kRefusalsInARow : kRefusalsBeforeSound) || packets_.unreadable() > kRefusalsInARow) {
      *error = format("the movie's sound cannot be decoded at {:.3f} s",
                      static_cast<double>(expected_.value_or(0)) / (first_ ? rate() : 1));
      return nullptr;
    }
  }
  *error = avErrorText(AVERROR(ENOMEM));
  return nullptr;
}

std::int64_t SoundDecoder::positionOf(const AVFrame& frame) const {
  const std::int64_t ticks = frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.best_effort_timestamp;
  if (ticks == AV_NOPTS_VALUE) return expected_.value_or(0);
  return unitsOf(track_->source()->timeOf(track_->facts().index, ticks), frame.sample_rate);
}

std::int64_t SoundDecoder::snapped(std::int64_t position) const {
  if (gridStep_ == 0) return position;
  const std::int64_t steps = av_rescale(position - gridOrigin_, 1, gridStep_);
  const std::int64_t near = gridOrigin_ + steps * gridStep_;
  return std::abs(near - position) <= tolerance_ ? near : position;
}

std::optional<SoundDecoder::Block> SoundDecoder::next(std::string* error) {
  while (!ended_) {
    Block block;
    block.frame = decode(error);
    if (!block.frame) {
      if (!error->empty()) return std::nullopt;
      ended_ = true;
      break;
    }
    AVFrame& frame = *block.frame;
    if (frame.sample_rate != rate() || av_channel_layout_compare(&frame.ch_layout, &layout()) != 0) {
      *error = "the movie's sound changes its form in the middle";
      return std::nullopt;
    }
    block.position = positionOf(frame);
    if (!expected_ || block.position > *expected_ + tolerance_) {
      block.position = snapped(block.position);
    } else if (std::abs(block.position - *expected_) <= tolerance_) {
      block.position = *expected_;
    } else if (block.position < *expected_) {
      continue;  // told twice
    }
    expected_ = block.position + frame.nb_samples;
    block.followsDamage = std::exchange(lost_, false);
    return block;
  }
  return Block{nullptr, 0, std::exchange(lost_, false)};
}

}  // namespace vistrelle::platform
