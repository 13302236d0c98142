#include "vistrelle/platform/media/export/prores_export.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <span>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/damage_log.h"
#include "vistrelle/platform/media/export/muxer.h"
#include "vistrelle/platform/media/export/picture_conversion.h"
#include "vistrelle/platform/media/export/picture_walk.h"
#include "vistrelle/platform/media/export/sound_mix.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {
namespace {

/// The track whose pictures a player shows: the first enabled one, the first of all where none is.
std::shared_ptr<Track> pictureTrackOf(const Asset& asset) {
  std::shared_ptr<Track> first;
  for (const auto& track : asset.tracks()) {
    if (track->mediaType() != MediaType::video || !track->timeRange().isValid()) continue;
    if (track->isEnabled()) return track;
    if (!first) first = track;
  }
  return first;
}

/// The frame's width in its header (SMPTE RDD 36, 5.1): behind the frame's size and name, the header's size, version
/// and encoder's name.
void stateWidth(AVPacket& packet, int width) {
  constexpr int kWidthAt = 4 + 4 + 2 + 2 + 4;
  if (packet.size < kWidthAt + 2) return;
  packet.data[kWidthAt] = static_cast<std::uint8_t>(width >> 8);
  packet.data[kWidthAt + 1] = static_cast<std::uint8_t>(width);
}

class ProResExport {
 public:
  ProResExport(Asset& asset, int fd, const ExportControl& control) : asset_(asset), fd_(fd), control_(control) {}
  bool run(std::string* error);

 private:
  bool openSound(std::string* error);
  bool openPictures(std::string* error);
  bool openEncoder(const PictureForm& form, std::string* error);
  bool keepOrientation(const PictureWalk::Shown& first);
  bool beginMovie(std::string* error);
  bool showPicture(std::string* error);
  bool encode(AVFrame* frame, std::string* error);
  bool writeSound(std::int64_t upTo, std::string* error);

  Asset& asset_;
  const int fd_;
  const ExportControl& control_;
  std::unique_ptr<Muxer> muxer_;

  std::optional<PictureWalk> walk_;
  std::int32_t scale_ = 0;
  int width_ = 0;             // of the picture; the encoder's may be one more
  PictureWalk::Shown shown_;  // what comes next
  DamageLog damage_{"pictures"};
  double pictureEnd_ = 0;  // of the whole track, in seconds
  std::optional<PictureConversion> conversion_;
  AvPtr<AVCodecContext> encoder_;
  AVStream* pictures_ = nullptr;
  std::deque<std::int64_t> durations_;  // of the frames in the encoder

  std::unique_ptr<SoundMix> mix_;
  AVStream* sound_ = nullptr;
  std::int64_t soundDone_ = 0;
  AvPtr<AVFrame> block_{av_frame_alloc()};
};

bool ProResExport::openSound(std::string* error) {
  mix_ = SoundMix::open(asset_, {}, error);
  if (!error->empty()) return false;
  if (mix_ && mix_->length() == 0) mix_.reset();
  return true;
}

bool ProResExport::openPictures(std::string* error) {
  const std::shared_ptr<Track> track = pictureTrackOf(asset_);
  if (!track) return true;
  std::optional<std::vector<PlayedPiece>> pieces = playedPiecesOf(track, error);
  if (!pieces) return false;
  if (pieces->empty()) return true;
  pictureEnd_ = pieces->back().target.end().seconds();
  walk_.emplace(std::move(*pieces));
  scale_ = walk_->timeScale(error);
  if (scale_ == 0) return false;
  std::optional<PictureWalk::Shown> first = walk_->next(error);
  if (!first) return false;
  shown_ = std::move(*first);
  const PictureForm form = formOf(*shown_.frame, shown_.decoder->shape());
  conversion_.emplace(form);
  return openEncoder(form, error);
}

bool ProResExport::openEncoder(const PictureForm& form, std::string* error) {
  const AVCodec* codec = avcodec_find_encoder_by_name("prores_ks");
  encoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  if (!encoder_) {
    *error = codec == nullptr ? "no encoder for ProRes" : avErrorText(AVERROR(ENOMEM));
    return false;
  }
  width_ = form.width;
  encoder_->width = form.codedWidth();
  encoder_->height = form.height;
  encoder_->pix_fmt = AV_PIX_FMT_YUV422P10;
  encoder_->time_base = {1, scale_};
  encoder_->sample_aspect_ratio = form.pixelAspect;
  encoder_->color_primaries = form.primaries;
  encoder_->color_trc = form.transfer;
  encoder_->colorspace = form.matrix;
  encoder_->color_range = AVCOL_RANGE_MPEG;
  encoder_->field_order = form.fields;
  if (form.fields != AV_FIELD_PROGRESSIVE) encoder_->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
  encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
  encoder_->thread_count = 0;
  encoder_->codec_tag = MKTAG('a', 'p', 'c', 'n');
  AVDictionary* options = nullptr;
  int status = av_dict_set(&options, "profile", "standard", 0);
  if (status >= 0) status = avcodec_open2(encoder_.get(), codec, &options);
  av_dict_free(&options);
  if (status < 0) *error = avErrorText(status);
  return status >= 0;
}

/// Rotation and mirroring stay facts of the track, stored as they were.
bool ProResExport::keepOrientation(const PictureWalk::Shown& first) {
  const std::span<const std::uint8_t> matrix = first.decoder->displayMatrix();
  if (matrix.empty()) return true;
  std::uint8_t* stored = av_stream_new_side_data(pictures_, AV_PKT_DATA_DISPLAYMATRIX, matrix.size());
  if (stored != nullptr) std::memcpy(stored, matrix.data(), matrix.size());
  return stored != nullptr;
}

bool ProResExport::beginMovie(std::string* error) {
  muxer_ = Muxer::open(fd_, "mov", error);
  if (!muxer_) return false;
  bool isGood = true;
  Muxer::Options options;
  if (encoder_) {
    pictures_ = muxer_->addStream(*encoder_);
    isGood = pictures_ != nullptr;
    if (isGood) pictures_->codecpar->width = width_;
    isGood = isGood && keepOrientation(shown_);
    options.emplace_back("video_track_timescale", format("{}", scale_));
  }
  if (mix_ && isGood) {
    sound_ = muxer_->addStream(AV_CODEC_ID_PCM_S16LE, mix_->format().rate, mix_->format().layout);
    isGood = sound_ != nullptr;
  }
  if (!isGood) {
    *error = avErrorText(AVERROR(ENOMEM));
    return false;
  }
  options.emplace_back("movie_timescale", format("{}", encoder_ ? scale_ : mix_->format().rate));
  return muxer_->begin(options, error);
}

bool ProResExport::encode(AVFrame* frame, std::string* error) {
  int status = avcodec_send_frame(encoder_.get(), frame);
  const AvPtr<AVPacket> packet(av_packet_alloc());
  while (status >= 0 && packet) {
    status = avcodec_receive_packet(encoder_.get(), packet.get());
    if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return true;
    if (status < 0 || durations_.empty()) break;
    stateWidth(*packet, width_);
    packet->dts = packet->pts;
    packet->duration = durations_.front();
    durations_.pop_front();
    if (!muxer_->write(*packet, *pictures_, encoder_->time_base, error)) return false;
  }
  *error = avErrorText(status < 0 ? status : AVERROR_BUG);
  return false;
}

/// Hands the present stretch to the encoder and gets the next one.
bool ProResExport::showPicture(std::string* error) {
  std::int64_t start = unitsOf(shown_.start, scale_);
  const std::int64_t end = unitsOf(shown_.end, scale_);
  std::shared_ptr<AVFrame> picture;
  if (shown_.isDamaged) damage_.add(shown_.start, shown_.end);
  if (end > start) {
    picture =
        shown_.frame ? conversion_->convert(*shown_.frame, shown_.decoder->shape(), error) : conversion_->black(error);
    if (!picture) return false;
  }
  // The tables of the file know no longer frame.
  constexpr std::int64_t kLongest = std::numeric_limits<std::int32_t>::max();
  for (std::int64_t step = 0; start < end; start += step) {
    step = std::min(end - start, kLongest);
    const AvPtr<AVFrame> frame(av_frame_clone(picture.get()));
    if (!frame) {
      *error = avErrorText(AVERROR(ENOMEM));
      return false;
    }
    frame->pts = start;
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    // The encoder writes what each frame says.
    frame->color_primaries = encoder_->color_primaries;
    frame->color_trc = encoder_->color_trc;
    frame->colorspace = encoder_->colorspace;
    frame->color_range = encoder_->color_range;
    setFields(*frame, encoder_->field_order != AV_FIELD_PROGRESSIVE, encoder_->field_order == AV_FIELD_TT);
    durations_.push_back(step);
    if (!encode(frame.get(), error)) return false;
  }
  std::optional<PictureWalk::Shown> next = walk_->next(error);
  if (!next) return false;
  shown_ = std::move(*next);
  return true;
}

bool ProResExport::writeSound(std::int64_t upTo, std::string* error) {
  constexpr int kBlock = 4096;
  const auto channels = static_cast<std::size_t>(mix_->format().layout.nb_channels);
  while (soundDone_ < upTo) {
    if (!mix_->read(*block_, kBlock, error)) return false;
    const auto count = static_cast<std::size_t>(block_->nb_samples);
    const AvPtr<AVPacket> packet(av_packet_alloc());
    if (!packet || av_new_packet(packet.get(), static_cast<int>(count * channels * sizeof(std::int16_t))) < 0) {
      *error = avErrorText(AVERROR(ENOMEM));
      return false;
    }
    std::uint8_t* to = packet->data;
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t channel = 0; channel < channels; ++channel) {
        const float value = reinterpret_cast<const float*>(block_->extended_data[channel])[i];
        const long sample = std::clamp(std::lrintf(value * 32768.0F), -32768L, 32767L);
        *to++ = static_cast<std::uint8_t>(sample & 0xff);
        *to++ = static_cast<std::uint8_t>(sample >> 8 & 0xff);
      }
    }
    packet->pts = packet->dts = soundDone_;
    packet->duration = static_cast<std::int64_t>(count);
    soundDone_ += packet->duration;
    if (!muxer_->write(*packet, *sound_, {1, mix_->format().rate}, error)) return false;
  }
  return true;
}

bool ProResExport::run(std::string* error) {
  if (!openSound(error) || !openPictures(error)) return false;
  if (!walk_ && !mix_) {
    *error = "the movie has neither pictures nor sound";
    return false;
  }
  if (!beginMovie(error)) return false;
  const double soundEnd = mix_ ? static_cast<double>(mix_->length()) / mix_->format().rate : 0;
  const double end = std::max(pictureEnd_, soundEnd);
  const std::int64_t soundLength = mix_ ? mix_->length() : 0;
  const std::int64_t second = mix_ ? mix_->format().rate : 1;
  while (walk_ && shown_.start < shown_.end) {
    if (control_.isCancelled()) return false;
    const double now = shown_.start.seconds();
    if (!showPicture(error)) return false;
    // Sound and pictures of a moment lie together.
    const std::int64_t upTo = std::min(soundLength, static_cast<std::int64_t>(now * static_cast<double>(second)));
    if (mix_ && !writeSound(upTo, error)) return false;
    control_.progress(now / end);
  }
  damage_.finish();
  if (encoder_ && !encode(nullptr, error)) return false;
  while (soundDone_ < soundLength) {
    if (control_.isCancelled()) return false;
    if (!writeSound(std::min(soundLength, soundDone_ + second), error)) return false;
    control_.progress(static_cast<double>(soundDone_) / static_cast<double>(second) / end);
  }
  return muxer_->finish(error);
}

}  // namespace

bool writeProRes(Asset& asset, int fd, const ExportControl& control, std::string* error) {
  return ProResExport(asset, fd, control).run(error);
}

}  // namespace vistrelle::platform
