#include "vistrelle/platform/media/export/silent_packet.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace vistrelle::platform {
namespace {

constexpr int kFrames = 8;
constexpr std::size_t kSettled = 4;         // of the packets made, one that no beginning shows in
constexpr double kInaudible = 4.0 / 32768;  // of full scale

/// ISO/IEC 14496-3, 1.6.2.1, for low complexity: transport streams state the same in every packet's header.
void addAacConfiguration(AVCodecParameters& parameters) {
  static constexpr std::array<int, 13> kRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};
  const auto rate = std::ranges::find(kRates, parameters.sample_rate);
  const int channels = channelCount(parameters);
  if (rate == kRates.end() || channels < 1 || channels > 6) return;
  constexpr int kLowComplexity = 2;
  const auto index = static_cast<int>(rate - kRates.begin());
  const int bits = kLowComplexity << 11 | index << 7 | channels << 3;
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(2 + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return;
  parameters.extradata[0] = static_cast<std::uint8_t>(bits >> 8);
  parameters.extradata[1] = static_cast<std::uint8_t>(bits);
  parameters.extradata_size = 2;
}

AvPtr<AVCodecContext> openEncoder(const AVCodecParameters& parameters, std::int64_t bitRate, int samples) {
  const AVCodec* codec = avcodec_find_encoder(parameters.codec_id);
  if (codec == nullptr || codec->sample_fmts == nullptr) return nullptr;
  AvPtr<AVCodecContext> encoder(avcodec_alloc_context3(codec));
  if (!encoder) return nullptr;
  encoder->sample_fmt = codec->sample_fmts[0];
  encoder->sample_rate = parameters.sample_rate;
  encoder->time_base = {1, parameters.sample_rate};
  encoder->frame_size = samples;
  encoder->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
  encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
  if (bitRate > 0) encoder->bit_rate = bitRate;
  if (av_channel_layout_check(&parameters.ch_layout) == 0) return nullptr;
  if (parameters.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&encoder->ch_layout, parameters.ch_layout.nb_channels);
  } else if (av_channel_layout_copy(&encoder->ch_layout, &parameters.ch_layout) < 0) {
    return nullptr;
  }
  return avcodec_open2(encoder.get(), codec, nullptr) < 0 ? nullptr : std::move(encoder);
}

AvPtr<AVFrame> silentFrame(const AVCodecContext& encoder, int samples, int number) {
  AvPtr<AVFrame> frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->nb_samples = samples;
  frame->format = encoder.sample_fmt;
  frame->sample_rate = encoder.sample_rate;
  frame->pts = std::int64_t{samples} * number;
  if (av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout) < 0) return nullptr;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  av_samples_set_silence(frame->extended_data, 0, samples, encoder.ch_layout.nb_channels, encoder.sample_fmt);
  return frame;
}

std::vector<std::uint8_t> encodeSilence(AVCodecContext& encoder, int samples) {
  const int length = encoder.frame_size > 0 ? encoder.frame_size : samples;
  const AvPtr<AVPacket> packet(av_packet_alloc());
  std::vector<std::vector<std::uint8_t>> packets;
  for (int i = 0; packet && i <= kFrames; ++i) {
    const AvPtr<AVFrame> frame = i < kFrames ? silentFrame(encoder, length, i) : nullptr;
    if (i < kFrames && !frame) return {};
    if (avcodec_send_frame(&encoder, frame.get()) < 0) return {};
    while (avcodec_receive_packet(&encoder, packet.get()) >= 0) {
      packets.emplace_back(packet->data, packet->data + packet->size);
      av_packet_unref(packet.get());
    }
  }
  return packets.size() > kSettled ? std::move(packets[kSettled]) : std::vector<std::uint8_t>();
}

/// The greatest value in a frame, of full scale 1.
double loudest(const AVFrame& frame) {
  const auto format = static_cast<AVSampleFormat>(frame.format);
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const int channels = channelCount(frame);
  double most = 0;
  for (int plane = 0; plane < (isPlanar ? channels : 1); ++plane) {
    const std::uint8_t* data = frame.extended_data[plane];
    for (int i = 0; i < frame.nb_samples * (isPlanar ? 1 : channels); ++i) {
      switch (av_get_packed_sample_fmt(format)) {
        case AV_SAMPLE_FMT_U8:
          most = std::max(most, std::abs(data[i] - 128) / 128.0);
          break;
        case AV_SAMPLE_FMT_S16:
          most = std::max(most, std::abs(reinterpret_cast<const std::int16_t*>(data)[i]) / 32768.0);
          break;
        case AV_SAMPLE_FMT_S32:
          most = std::max(most, std::abs(reinterpret_cast<const std::int32_t*>(data)[i] / 2147483648.0));
          break;
        case AV_SAMPLE_FMT_FLT:
          most = std::max(most, std::abs(double{reinterpret_cast<const float*>(data)[i]}));
          break;
        default:
          return 1;
      }
    }
  }
  return most;
}

bool isSilent(const std::vector<std::uint8_t>& bytes, const AVCodecParameters& parameters, int samples) {
  const AVCodec* codec = findDecoder(parameters.codec_id);
  const AvPtr<AVCodecContext> decoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  const AvPtr<AVPacket> packet(av_packet_alloc());
  const AvPtr<AVFrame> frame(av_frame_alloc());
  if (!decoder || !packet || !frame || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) return false;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return false;
  int heard = 0;
  for (int i = 0; i < kFrames; ++i) {
    if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) return false;
    std::ranges::copy(bytes, packet->data);
    const int status = avcodec_send_packet(decoder.get(), packet.get());
    av_packet_unref(packet.get());
    if (status < 0) return false;
    while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
      if (frame->nb_samples != samples || channelCount(*frame) != channelCount(parameters)) return false;
      if (loudest(*frame) > kInaudible) return false;
      ++heard;
    }
  }
  return heard >= kFrames - 2;
}

}  // namespace

std::optional<std::uint8_t> silentByte(const AVCodecParameters& parameters) {
  switch (parameters.codec_id) {
    case AV_CODEC_ID_PCM_U8:
      return 0x80;
    case AV_CODEC_ID_PCM_ALAW:
      return 0xd5;  // the least value above zero
    case AV_CODEC_ID_PCM_MULAW:
      return 0xff;
    case AV_CODEC_ID_ADPCM_IMA_QT:
      return 0;  // no prediction, the smallest step, no difference
    default:
      if (av_get_exact_bits_per_sample(parameters.codec_id) >= 8) return 0;
      return std::nullopt;
  }
}

std::vector<std::uint8_t> silentPacket(const AVCodecParameters& parameters, int samples) {
  const AvPtr<AVCodecParameters> complete(avcodec_parameters_alloc());
  if (!complete || samples <= 0 || avcodec_parameters_copy(complete.get(), &parameters) < 0) return {};
  if (complete->codec_id == AV_CODEC_ID_AAC && complete->extradata_size == 0) addAacConfiguration(*complete);
  // Some encoders take the rates of their format only, others ask for one.
  for (const std::int64_t bitRate : {parameters.bit_rate, std::int64_t{0}}) {
    const AvPtr<AVCodecContext> encoder = openEncoder(*complete, bitRate, samples);
    if (!encoder) continue;
    std::vector<std::uint8_t> packet = encodeSilence(*encoder, samples);
    if (!packet.empty() && isSilent(packet, *complete, samples)) return packet;
  }
  return {};
}

}  // namespace vistrelle::platform
