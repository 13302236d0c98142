#include "vistrelle/platform/media/ffmpeg/sequence_headers.h"

#include <algorithm>
#include <span>
#include <utility>

#include "vistrelle/platform/media/ffmpeg/start_codes.h"

namespace vistrelle::platform {

namespace {

using Bytes = std::span<const std::uint8_t>;

// Start codes of ISO/IEC 11172-2, table 1 (and 13818-2, table 6-1).
constexpr int kPicture = 0x00;
constexpr int kSequence = 0xb3;
constexpr int kExtension = 0xb5;

// Width, height and aspect; the sequence extension (profile, chroma format, high bits of the sizes) and the display
// extension, from which an aspect follows. Rates and buffer sizes may change as they like.
std::vector<std::uint8_t> sequenceIn(Bytes data) {
  std::vector<std::uint8_t> header;
  forEachStartCode(data, [&header](int code, Bytes unit) {
    if (code == kPicture) return false;
    if (code == kSequence && unit.size() >= 4) {
      header.assign(unit.begin(), unit.begin() + 3);
      header.push_back(unit[3] & 0xf0);
    } else if (code == kExtension && !header.empty() && unit.size() >= 3) {
      const int kind = unit[0] >> 4;
      if (kind == 1) header.insert(header.end(), {unit[0], unit[1], static_cast<std::uint8_t>(unit[2] & 0xe0)});
      if (kind == 2) header.insert(header.end(), unit.begin(), unit.end());
    }
    return true;
  });
  return header;
}

// The video object layer (ISO/IEC 14496-2, 6.2.3) as a whole; ends before the first picture (B6).
std::vector<std::uint8_t> objectLayerIn(Bytes data) {
  std::vector<std::uint8_t> header;
  forEachStartCode(data, [&header](int code, Bytes unit) {
    if (code >= 0x20 && code <= 0x2f) header.assign(unit.begin(), unit.end());
    return code != 0xb6;
  });
  return header;
}

}  // namespace

bool SequenceHeaders::changeWith(const AVPacket& packet, AVCodecID codec) {
  const Bytes data(packet.data, static_cast<std::size_t>(std::max(packet.size, 0)));
  std::vector<std::uint8_t> header;
  if (codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO) {
    header = sequenceIn(data);
  } else if (codec == AV_CODEC_ID_MPEG4) {
    header = objectLayerIn(data);
  }
  if (header.empty() || header == last_) return false;
  return !std::exchange(last_, std::move(header)).empty();
}

}  // namespace vistrelle::platform
