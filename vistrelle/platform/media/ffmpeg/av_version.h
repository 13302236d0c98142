#pragma once

/// The only place that knows versions of FFmpeg's libraries (5.1 to 7.x).

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

namespace vistrelle::platform {

inline bool isKeyFrame(const AVFrame& frame) {
#ifdef AV_FRAME_FLAG_KEY
  return (frame.flags & AV_FRAME_FLAG_KEY) != 0;
#else
  return frame.key_frame != 0;
#endif
}

inline bool isInterlaced(const AVFrame& frame) {
#ifdef AV_FRAME_FLAG_INTERLACED
  return (frame.flags & AV_FRAME_FLAG_INTERLACED) != 0;
#else
  return frame.interlaced_frame != 0;
#endif
}

inline bool isTopFieldFirst(const AVFrame& frame) {
#ifdef AV_FRAME_FLAG_TOP_FIELD_FIRST
  return (frame.flags & AV_FRAME_FLAG_TOP_FIELD_FIRST) != 0;
#else
  return frame.top_field_first != 0;
#endif
}

inline void setFields(AVFrame& frame, bool interlaced, bool topFirst) {
#ifdef AV_FRAME_FLAG_INTERLACED
  frame.flags &= ~(AV_FRAME_FLAG_INTERLACED | AV_FRAME_FLAG_TOP_FIELD_FIRST);
  if (interlaced) frame.flags |= AV_FRAME_FLAG_INTERLACED;
  if (interlaced && topFirst) frame.flags |= AV_FRAME_FLAG_TOP_FIELD_FIRST;
#else
  frame.interlaced_frame = interlaced ? 1 : 0;
  frame.top_field_first = interlaced && topFirst ? 1 : 0;
#endif
}

/// How long the frame lasts by its packet, in the stream's time base; 0 when unknown.
inline std::int64_t frameDuration(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

/// Side data of a whole stream (display matrix, mastering display, ...); empty when there is none.
inline std::span<const std::uint8_t> streamSideData(const AVStream& stream, AVPacketSideDataType type) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 31, 102)
  const AVPacketSideData* entry =
      av_packet_side_data_get(stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data, type);
  return entry == nullptr ? std::span<const std::uint8_t>{} : std::span<const std::uint8_t>{entry->data, entry->size};
#else
  std::size_t size = 0;
  const std::uint8_t* data = av_stream_get_side_data(&stream, type, &size);
  return data == nullptr ? std::span<const std::uint8_t>{} : std::span<const std::uint8_t>{data, size};
#endif
}

#ifdef AV_PROFILE_UNKNOWN
constexpr int kUnknownProfile = AV_PROFILE_UNKNOWN;
#else
constexpr int kUnknownProfile = FF_PROFILE_UNKNOWN;
#endif

inline int channelCount(const AVCodecParameters& parameters) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(59, 24, 100)
  return parameters.ch_layout.nb_channels;
#else
  return parameters.channels;
#endif
}

inline int channelCount(const AVFrame& frame) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(59, 24, 100)
  return frame.ch_layout.nb_channels;
#else
  return frame.channels;
#endif
}

}  // namespace vistrelle::platform
