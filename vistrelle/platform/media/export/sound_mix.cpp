#include "vistrelle/platform/media/export/sound_mix.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace vistrelle::platform {
namespace {

/// The native layout of as many channels as `layout` has, or `layout` itself where it is one.
AVChannelLayout nativeLayout(const AVChannelLayout& layout, int mostChannels) {
  AVChannelLayout native{};
  const int channels = std::clamp(layout.nb_channels, 1, mostChannels);
  if (layout.order == AV_CHANNEL_ORDER_NATIVE && channels == layout.nb_channels) {
    native = layout;
  } else {
    av_channel_layout_default(&native, channels);
  }
  return native;
}

int nearestOf(const std::vector<int>& rates, int rate) {
  if (rates.empty()) return rate;
  return *std::ranges::min_element(rates, {}, [rate](int candidate) { return std::abs(candidate - rate); });
}

/// The rate at which the source's samples are to be taken for the piece to last as long as it shall.
void ratesFor(const PlayedPiece& piece, int sourceRate, int targetRate, int* from, int* to) {
  *from = sourceRate;
  *to = targetRate;
  if (!piece.isScaled()) return;
  const double ratio = piece.source.duration.seconds() / piece.target.duration.seconds();
  // The converter takes whole rates: both are multiplied so that the ratio is met.
  constexpr double kHighest = 1 << 28;
  const double scale = std::floor(std::clamp(kHighest / std::max(sourceRate * ratio, double(targetRate)), 1.0, 1000.0));
  *from = static_cast<int>(std::clamp(std::round(sourceRate * ratio * scale), 1.0, kHighest));
  *to = static_cast<int>(targetRate * scale);
}

std::unique_ptr<SwrContext, SwrDeleter> makeConverter(const SoundDecoder& decoder, AVSampleFormat sampleFormat,
                                                      const PlayedPiece& piece, const SoundFormat& format,
                                                      std::string* error) {
  int from = 0;
  int to = 0;
  ratesFor(piece, decoder.rate(), format.rate, &from, &to);
  // Older libraries take both without const.
  AVChannelLayout in = nativeLayout(decoder.layout(), decoder.layout().nb_channels);
  AVChannelLayout out = format.layout;
  SwrContext* context = nullptr;
  int status = swr_alloc_set_opts2(&context, &out, AV_SAMPLE_FMT_FLTP, to, &in, sampleFormat, from, 0, nullptr);
  std::unique_ptr<SwrContext, SwrDeleter> converter(context);
  if (status >= 0) {
    // Many channels brought down to few never leave the range.
    av_opt_set_double(context, "rematrix_maxval", 1.0, 0);
    av_opt_set_int(context, "filter_size", 64, 0);
    av_opt_set_int(context, "linear_interp", 1, 0);
    if (in.nb_channels == 1 && format.layout.nb_channels > 1) {
      // A single channel sounds from every front speaker as it is.
      std::array<double, 64> matrix{};
      for (int channel = 0; channel < format.layout.nb_channels; ++channel) {
        const AVChannel speaker = av_channel_layout_channel_from_index(&format.layout, static_cast<unsigned>(channel));
        const bool isAlone = format.layout.nb_channels <= 2;
        matrix[static_cast<std::size_t>(channel)] = isAlone || speaker == AV_CHAN_FRONT_CENTER ? 1.0 : 0.0;
      }
      status = swr_set_matrix(context, matrix.data(), 1);
    }
    if (status >= 0) status = swr_init(context);
  }
  if (status >= 0) return converter;
  *error = avErrorText(status);
  return nullptr;
}

}  // namespace

bool SoundTrack::beginPiece(std::string* error) {
  const PlayedPiece& piece = pieces_[current_];
  if (decoded_ != piece.track.get()) {
    decoder_ = SoundDecoder::open(piece.track, error);
    decoded_ = decoder_ ? piece.track.get() : nullptr;
    if (!decoder_) return false;
  }
  if (!decoder_->begin(piece.source.start, error)) return false;
  const auto sampleFormat = static_cast<AVSampleFormat>(decoder_->sampleFormat());
  converter_ = makeConverter(*decoder_, sampleFormat, piece, format_, error);
  if (!converter_) return false;
  const int rate = decoder_->rate();
  fed_ = unitsOf(piece.source.start, rate);
  statedEnd_ = unitsOf(piece.source.end(), rate);
  sourceEnd_ = statedEnd_;
  if (rate == format_.rate && !piece.isScaled()) {
    // As many samples as the timeline has room for, whichever way the ends were rounded.
    sourceEnd_ = fed_ + unitsOf(piece.target.end(), rate) - unitsOf(piece.target.start, rate);
  }
  ready_.assign(static_cast<std::size_t>(format_.layout.nb_channels), {});
  taken_ = 0;
  drained_ = false;
  begun_ = true;
  return true;
}

bool SoundTrack::convert(const std::uint8_t* const* samples, std::int64_t count, std::string* error) {
  if (taken_ > 0) {
    for (std::vector<float>& channel : ready_) channel.erase(channel.begin(), channel.begin() + std::ptrdiff_t(taken_));
    taken_ = 0;
  }
  const int most = swr_get_out_samples(converter_.get(), static_cast<int>(count));
  if (most < 0) {
    *error = avErrorText(most);
    return false;
  }
  const int room = most + 64;
  const std::size_t before = kept();
  std::array<std::uint8_t*, 64> out{};
  for (std::size_t i = 0; i < ready_.size(); ++i) {
    ready_[i].resize(before + static_cast<std::size_t>(room));
    out[i] = reinterpret_cast<std::uint8_t*>(ready_[i].data() + before);
  }
  // The parameter lacks a const that the library honours.
  const int got = swr_convert(converter_.get(), out.data(), room, const_cast<const std::uint8_t**>(samples),
                              static_cast<int>(count));
  for (std::vector<float>& channel : ready_) channel.resize(before + static_cast<std::size_t>(std::max(got, 0)));
  if (got < 0) *error = avErrorText(got);
  return got >= 0;
}

bool SoundTrack::feedSilence(std::int64_t count, std::string* error) {
  constexpr std::int64_t kStep = 4096;
  const auto sampleFormat = static_cast<AVSampleFormat>(decoder_->sampleFormat());
  const int channels = decoder_->layout().nb_channels;
  AvPtr<AVFrame> silence(av_frame_alloc());
  int status = silence ? av_channel_layout_copy(&silence->ch_layout, &decoder_->layout()) : AVERROR(ENOMEM);
  if (status >= 0) {
    silence->format = sampleFormat;
    silence->nb_samples = kStep;
    status = av_frame_get_buffer(silence.get(), 0);
  }
  if (status < 0) {
    *error = avErrorText(status);
    return false;
  }
  av_samples_set_silence(silence->extended_data, 0, kStep, channels, sampleFormat);
  while (count > 0) {
    const std::int64_t step = std::min(count, kStep);
    if (!convert(silence->extended_data, step, error)) return false;
    fed_ += step;
    count -= step;
  }
  return true;
}

bool SoundTrack::feedBlock(const SoundDecoder::Block& block, std::string* error) {
  const AVFrame& frame = *block.frame;
  const std::int64_t end = std::min(block.position + frame.nb_samples, sourceEnd_);
  if (end <= fed_) return true;
  if (block.position > fed_ && !feedSilence(std::min(block.position, sourceEnd_) - fed_, error)) return false;
  if (end <= fed_) return true;
  const auto skipped = static_cast<std::size_t>(fed_ - block.position);
  const bool isPlanar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
  const auto bytes = static_cast<std::size_t>(av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame.format)));
  const auto channels = static_cast<std::size_t>(frame.ch_layout.nb_channels);
  std::vector<const std::uint8_t*> planes(isPlanar ? channels : 1);
  for (std::size_t i = 0; i < planes.size(); ++i) {
    planes[i] = frame.extended_data[i] + skipped * bytes * (isPlanar ? 1 : channels);
  }
  const std::int64_t count = end - fed_;
  fed_ = end;
  return convert(planes.data(), count, error);
}

/// What the source lacks between two of its samples is silence on the timeline.
void SoundTrack::noteDamage(std::int64_t from, std::int64_t to) {
  const PlayedPiece& piece = pieces_[current_];
  const auto timeOf = [&](std::int64_t sample) { return piece.targetOf(MediaTime::make(sample, decoder_->rate())); };
  damage_.add(timeOf(from), timeOf(std::max(from, to)));
}

/// Converts until `count` samples are ready or the piece has no more.
bool SoundTrack::fill(std::size_t count, std::string* error) {
  while (kept() < count && !drained_) {
    if (fed_ >= sourceEnd_) {
      drained_ = true;
      return convert(nullptr, 0, error);
    }
    const std::optional<SoundDecoder::Block> block = decoder_->next(error);
    if (!block) return false;
    if (block->followsDamage) noteDamage(fed_, block->frame ? std::min(block->position, sourceEnd_) : sourceEnd_);
    if (block->frame) {
      if (!feedBlock(*block, error)) return false;
      continue;
    }
    // A quarter of a second may lack by what tables round and encoders leave out; more is a torn file.
    if (statedEnd_ - fed_ > decoder_->rate() / 4) {
      *error = "the movie's sound ends before its time";
      return false;
    }
    if (!feedSilence(sourceEnd_ - fed_, error)) return false;
  }
  return true;
}

bool SoundTrack::addTo(const std::vector<float*>& planes, int count, std::string* error) {
  const std::int64_t end = position_ + count;
  const std::int64_t begin = position_;
  while (position_ < end && current_ < pieces_.size()) {
    const PlayedPiece& piece = pieces_[current_];
    const std::int64_t pieceStart = unitsOf(piece.target.start, format_.rate);
    const std::int64_t pieceEnd = unitsOf(piece.target.end(), format_.rate);
    if (position_ < pieceStart) {
      position_ = std::min(end, pieceStart);
      continue;
    }
    if (position_ >= pieceEnd) {
      ++current_;
      begun_ = false;
      continue;
    }
    if (!begun_ && !beginPiece(error)) return false;
    const auto wanted = static_cast<std::size_t>(std::min(end, pieceEnd) - position_);
    if (!fill(wanted, error)) return false;
    const std::size_t got = std::min(wanted, kept());
    for (std::size_t channel = 0; channel < ready_.size(); ++channel) {
      float* to = planes[channel] + (position_ - begin);
      const float* from = ready_[channel].data() + taken_;
      for (std::size_t i = 0; i < got; ++i) to[i] += from[i];
    }
    taken_ += got;
    position_ += static_cast<std::int64_t>(wanted);  // what a resampled piece lacks at its end is silence
  }
  position_ = end;
  return true;
}

std::unique_ptr<SoundMix> SoundMix::open(const Asset& asset, const Wishes& wishes, std::string* error) {
  std::vector<std::shared_ptr<Track>> chosen;
  for (const auto& track : asset.tracks()) {
    if (track->mediaType() == MediaType::audio) chosen.push_back(track);
  }
  const auto isEnabled = [](const auto& track) { return track->isEnabled(); };
  if (std::ranges::any_of(chosen, isEnabled)) {
    std::erase_if(chosen, [&](const auto& track) { return !isEnabled(track); });
  } else if (chosen.size() > 1) {
    chosen.resize(1);
  }
  std::unique_ptr<SoundMix> mix(new SoundMix);
  std::vector<std::vector<PlayedPiece>> all;
  MediaTime end = MediaTime::zero();
  for (const auto& track : chosen) {
    std::optional<std::vector<PlayedPiece>> pieces = playedPiecesOf(track, error);
    if (!pieces) return nullptr;
    if (pieces->empty()) continue;
    end = std::max(end, endOf(*track));
    const MovieTrack* looked = nullptr;
    for (const PlayedPiece& piece : *pieces) {
      if (piece.track.get() == looked) continue;
      looked = piece.track.get();
      const auto decoder = SoundDecoder::open(piece.track, error);
      if (!decoder) return nullptr;
      mix->format_.rate = std::max(mix->format_.rate, decoder->rate());
      const AVChannelLayout layout = nativeLayout(decoder->layout(), wishes.mostChannels);
      if (layout.nb_channels > mix->format_.layout.nb_channels) mix->format_.layout = layout;
    }
    all.push_back(std::move(*pieces));
  }
  if (all.empty()) return nullptr;
  mix->format_.rate = nearestOf(wishes.rates, mix->format_.rate);
  mix->length_ = unitsOf(end, mix->format_.rate);
  for (std::vector<PlayedPiece>& pieces : all) {
    mix->tracks_.push_back(std::make_unique<SoundTrack>(std::move(pieces), mix->format_));
  }
  return mix;
}

bool SoundMix::read(AVFrame& frame, int atMost, std::string* error) {
  av_frame_unref(&frame);
  const auto count = static_cast<int>(std::min<std::int64_t>(atMost, length_ - position_));
  frame.format = AV_SAMPLE_FMT_FLTP;
  frame.sample_rate = format_.rate;
  if (const int status = av_channel_layout_copy(&frame.ch_layout, &format_.layout); status < 0) {
    *error = avErrorText(status);
    return false;
  }
  frame.nb_samples = count;
  if (count <= 0) {
    frame.nb_samples = 0;
    return true;
  }
  if (const int status = av_frame_get_buffer(&frame, 0); status < 0) {
    *error = avErrorText(status);
    return false;
  }
  av_samples_set_silence(frame.extended_data, 0, count, format_.layout.nb_channels, AV_SAMPLE_FMT_FLTP);
  std::vector<float*> planes;
  for (int i = 0; i < format_.layout.nb_channels; ++i)
    planes.push_back(reinterpret_cast<float*>(frame.extended_data[i]));
  for (const auto& track : tracks_) {
    if (!track->addTo(planes, count, error)) return false;
  }
  for (float* plane : planes) {
    std::transform(plane, plane + count, plane, [](float value) { return std::clamp(value, -1.0F, 1.0F); });
  }
  frame.pts = position_;
  position_ += count;
  if (position_ == length_) {
    for (const auto& track : tracks_) track->finish();
  }
  return true;
}

}  // namespace vistrelle::platform
