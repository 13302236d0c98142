#include "vistrelle/platform/media/ffmpeg/frame_chunks.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "vistrelle/platform/media/ffmpeg/start_codes.h"

namespace vistrelle::platform {

namespace {

using Bytes = std::span<const std::uint8_t>;

// Bits from the most significant one; zeros behind the end.
class Bits {
 public:
  explicit Bits(Bytes data) : data_(data) {}

  unsigned read(int count) {
    unsigned value = 0;
    for (int i = 0; i < count; ++i, ++at_) {
      const unsigned byte = at_ / 8 < data_.size() ? data_[at_ / 8] : 0U;
      value = value << 1 | (byte >> (7 - at_ % 8) & 1U);
    }
    return value;
  }
  void skip(std::size_t count) { at_ += count; }
  bool isAtEnd() const { return at_ / 8 >= data_.size(); }

 private:
  Bytes data_;
  std::size_t at_ = 0;
};

Bytes bytesOf(const AVPacket& packet) {
  return {packet.data, static_cast<std::size_t>(std::max(packet.size, 0))};
}

// A start code with one of these bytes behind it.
template <typename Test>
bool hasCode(Bytes data, Test test) {
  bool has = false;
  forEachStartCode(data, [&](int code, Bytes) {
    has = test(code);
    return !has;
  });
  return has;
}

// ISO/IEC 14496-2, 6.2.5: whether a video object plane is coded.
bool isCoded(Bytes plane, int incrementBits) {
  Bits bits(plane);
  bits.skip(2);  // vop_coding_type
  while (bits.read(1) == 1 && !bits.isAtEnd()) {
  }
  bits.skip(1 + static_cast<std::size_t>(incrementBits) + 1);
  return bits.read(1) == 1;
}

}  // namespace

// ISO/IEC 14496-2, 6.2.3, as far as vop_time_increment_resolution.
void FrameChunks::readObjectLayer(Bytes layer) {
  constexpr std::size_t kBufferSizes = 79;
  constexpr unsigned kExtendedAspect = 15;
  Bits bits(layer);
  bits.skip(9);
  if (bits.read(1) == 1) bits.skip(7);
  if (bits.read(4) == kExtendedAspect) bits.skip(16);
  if (bits.read(1) == 1) {
    bits.skip(3);
    if (bits.read(1) == 1) bits.skip(kBufferSizes);
  }
  const bool isRectangular = bits.read(2) == 0;
  bits.skip(1);
  const unsigned resolution = bits.read(16);
  incrementBits_ = isRectangular && resolution > 0 ? std::max(1, static_cast<int>(std::bit_width(resolution - 1))) : 0;
}

bool FrameChunks::holdsObjectPlane(Bytes data, const AVCodecParameters& parameters) {
  const auto visit = [this](int code, Bytes unit) {
    if (code >= 0x20 && code <= 0x2f) readObjectLayer(unit);
    return true;
  };
  if (incrementBits_ == 0 && parameters.extradata_size > 0) {
    forEachStartCode({parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)}, visit);
  }
  forEachStartCode(data, visit);
  int coded = 0;
  forEachStartCode(data, [&](int code, Bytes unit) {
    if (code == 0xb6) coded += incrementBits_ == 0 || isCoded(unit, incrementBits_) ? 1 : 0;
    return true;
  });
  if (coded > 0) {
    owed_ += coded - 1;
    return true;
  }
  return std::exchange(owed_, std::max(0, owed_ - 1)) > 0;
}

bool FrameChunks::holdsFrame(const AVPacket& packet, const AVCodecParameters& parameters) {
  const Bytes data = bytesOf(packet);
  // What has no start code at all is damaged or of another form: a decoder will say what it holds.
  if (!hasCode(data, [](int) { return true; })) return true;
  switch (parameters.codec_id) {
    case AV_CODEC_ID_MPEG4:
      return holdsObjectPlane(data, parameters);
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
      return hasCode(data, [](int code) { return code == 0; });
    case AV_CODEC_ID_H264:
      // With lengths in place of start codes the three bytes may stand there by chance.
      if (parameters.extradata_size > 0 && parameters.extradata[0] == 1) return true;
      return hasCode(data, [](int code) { return (code & 0x1f) >= 1 && (code & 0x1f) <= 5; });
    default:
      return true;
  }
}

}  // namespace vistrelle::platform
