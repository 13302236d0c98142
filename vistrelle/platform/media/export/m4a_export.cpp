#include "vistrelle/platform/media/export/m4a_export.h"

#include <algorithm>
#include <memory>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/muxer.h"
#include "vistrelle/platform/media/export/sound_mix.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kBitsPerChannel = 128000;

/// The rates of ISO/IEC 14496-3, table 1.18.
std::vector<int> aacRates() {
  return {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
}

AvPtr<AVCodecContext> openEncoder(const SoundFormat& format, std::string* error) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
  AvPtr<AVCodecContext> encoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  if (!encoder) {
    *error = codec == nullptr ? "no encoder for AAC" : avErrorText(AVERROR(ENOMEM));
    return nullptr;
  }
  encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
  encoder->sample_rate = format.rate;
  encoder->time_base = {1, format.rate};
  encoder->profile = FF_PROFILE_AAC_LOW;
  int status = av_channel_layout_copy(&encoder->ch_layout, &format.layout);
  // A block of 1024 samples holds at most 6144 bits a channel (ISO/IEC 14496-3, 4.5.3.1).
  const std::int64_t most = std::int64_t{6144} * format.rate / 1024;
  encoder->bit_rate = std::min(kBitsPerChannel, most) * format.layout.nb_channels;
  encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
  AVDictionary* options = nullptr;
  // Noise in place of a band, and one channel in place of two, save bits that are not short at this rate.
  if (status >= 0) status = av_dict_set(&options, "aac_pns", "0", 0);
  if (status >= 0) status = av_dict_set(&options, "aac_is", "0", 0);
  if (status >= 0) status = avcodec_open2(encoder.get(), codec, &options);
  av_dict_free(&options);
  if (status >= 0) return encoder;
  *error = avErrorText(status);
  return nullptr;
}

/// A block of silence before the first sample. The encoder has nothing to compare its first block with: sound that is
/// there at once comes out smeared, at 13 dB over the error where 56 dB follow, and the bits lack for a second.
bool encodeLeadIn(Muxer& writer, const AVStream& stream, AVCodecContext& encoder, std::string* error) {
  const AvPtr<AVFrame> silence(av_frame_alloc());
  int status = silence ? 0 : AVERROR(ENOMEM);
  if (silence) {
    silence->format = encoder.sample_fmt;
    silence->sample_rate = encoder.sample_rate;
    silence->nb_samples = encoder.frame_size;
    silence->pts = -encoder.frame_size;
    status = av_channel_layout_copy(&silence->ch_layout, &encoder.ch_layout);
    if (status >= 0) status = av_frame_get_buffer(silence.get(), 0);
  }
  if (status < 0) {
    *error = avErrorText(status);
    return false;
  }
  av_samples_set_silence(silence->extended_data, 0, silence->nb_samples, encoder.ch_layout.nb_channels,
                         encoder.sample_fmt);
  return encodeInto(writer, stream, encoder, silence.get(), error);
}

}  // namespace

bool writeM4a(Asset& asset, int fd, const ExportControl& control, std::string* error) {
  const auto mix = SoundMix::open(asset, {2, aacRates()}, error);
  if (!mix || mix->length() == 0) {
    if (error->empty()) *error = "the movie has no sound";
    return false;
  }
  const AvPtr<AVCodecContext> encoder = openEncoder(mix->format(), error);
  if (!encoder) return false;
  const auto writer = Muxer::open(fd, "ipod", error);
  if (!writer) return false;
  const AVStream* stream = writer->addStream(*encoder);
  if (stream == nullptr) {
    *error = avErrorText(AVERROR(ENOMEM));
    return false;
  }
  // The edit list cuts the encoder's lead-in and padding off; its unit must be the sample to do so exactly.
  if (!writer->begin({{"movie_timescale", format("{}", mix->format().rate)}}, error)) return false;
  if (!encodeLeadIn(*writer, *stream, *encoder, error)) return false;
  const AvPtr<AVFrame> frame(av_frame_alloc());
  for (std::int64_t done = 0; done < mix->length();) {
    if (control.isCancelled()) return false;
    if (!mix->read(*frame, encoder->frame_size, error)) return false;
    if (!encodeInto(*writer, *stream, *encoder, frame.get(), error)) return false;
    done += frame->nb_samples;
    control.progress(static_cast<double>(done) / static_cast<double>(mix->length()));
  }
  return encodeInto(*writer, *stream, *encoder, nullptr, error) && writer->finish(error);
}

}  // namespace vistrelle::platform
