#include "vistrelle/platform/media/ffmpeg/frame_random_access.h"

#include <cstdint>
#include <optional>
#include <span>

namespace vistrelle::platform {

namespace {

using Bytes = std::span<const std::uint8_t>;

// How many bytes hold the length before each NAL unit; 0 where start codes separate them. The configuration records of
// ISO/IEC 14496-15 (5.3.3.1, 8.3.3.1) begin with 1.
std::size_t lengthBytes(const AVCodecParameters& parameters) {
  const bool isHevc = parameters.codec_id == AV_CODEC_ID_HEVC;
  const int at = isHevc ? 21 : 4;
  if (parameters.extradata_size <= at + 1 || parameters.extradata[0] != 1) return 0;
  return std::size_t{1} + (parameters.extradata[at] & 3U);
}

// Calls `visit` with each NAL unit until it answers false.
template <typename Visit>
void forEachNalUnit(const AVPacket& packet, std::size_t lengths, Visit visit) {
  Bytes data(packet.data, static_cast<std::size_t>(packet.size));
  if (lengths == 0) {
    for (std::size_t i = 0; i + 3 < data.size(); ++i) {
      if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 && !visit(data.subspan(i + 3))) return;
    }
    return;
  }
  while (data.size() > lengths) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < lengths; ++i) length = length << 8 | data[i];
    data = data.subspan(lengths);
    if (length == 0 || length > data.size() || !visit(data.first(length))) return;
    data = data.subspan(length);
  }
}

bool isHevcRandomAccess(const AVPacket& packet, const AVCodecParameters& parameters) {
  bool isRandomAccess = false;
  forEachNalUnit(packet, lengthBytes(parameters), [&](Bytes unit) {
    // ITU-T H.265, table 7-1: types 0 to 31 are slices, 16 to 23 belong to random access pictures.
    const int type = unit[0] >> 1 & 0x3f;
    isRandomAccess = type >= 16 && type <= 23;
    return type > 31;
  });
  return isRandomAccess;
}

// Exp-Golomb (ITU-T H.264, 9.1) from the start of `bytes`; nothing when it does not end within 32 bits.
std::optional<int> readUnsignedGolomb(Bytes bytes) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < 8; ++i) bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0U);
  int zeros = 0;
  while (zeros < 16 && (bits >> (63 - zeros) & 1) == 0) ++zeros;
  if (zeros == 16) return std::nullopt;
  return static_cast<int>(bits >> (63 - 2 * zeros) & ((std::uint64_t{2} << zeros) - 1)) - 1;
}

// recovery_frame_cnt of a recovery point message (payload type 6) in an SEI unit.
std::optional<int> recoveryCount(Bytes unit) {
  for (std::size_t at = 1; at + 2 < unit.size() && unit[at] != 0x80;) {
    int type = 0;
    std::size_t size = 0;
    for (; at < unit.size() && unit[at] == 0xff; ++at) type += 255;
    if (at < unit.size()) type += unit[at++];
    for (; at < unit.size() && unit[at] == 0xff; ++at) size += 255;
    if (at < unit.size()) size += unit[at++];
    if (at >= unit.size()) break;
    if (type == 6) return readUnsignedGolomb(unit.subspan(at));
    at += size;
  }
  return std::nullopt;
}

bool refreshesGradually(const AVPacket& packet, const AVCodecParameters& parameters) {
  bool isGradual = false;
  forEachNalUnit(packet, lengthBytes(parameters), [&](Bytes unit) {
    // ITU-T H.264, table 7-1: 6 is SEI, 1 to 5 are slices, 5 those of an IDR picture.
    const int type = unit[0] & 0x1f;
    if (type == 6) isGradual = recoveryCount(unit).value_or(isGradual ? 1 : 0) > 0;
    if (type == 5) isGradual = false;
    return type > 5 || type == 0;
  });
  return isGradual;
}

}  // namespace

bool isLandingPacket(const AVPacket& packet, const AVCodecParameters& parameters) {
  if ((packet.flags & AV_PKT_FLAG_KEY) == 0 || packet.pts == AV_NOPTS_VALUE) return false;
  switch (parameters.codec_id) {
    case AV_CODEC_ID_HEVC:
      return isHevcRandomAccess(packet, parameters);
    case AV_CODEC_ID_H264:
      return !refreshesGradually(packet, parameters);
    case AV_CODEC_ID_H261:
      return false;  // every packet is flagged as a key
    default:
      return true;
  }
}

}  // namespace vistrelle::platform
