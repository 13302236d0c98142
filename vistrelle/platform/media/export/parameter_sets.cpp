#include "vistrelle/platform/media/export/parameter_sets.h"

#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "vistrelle/platform/media/export/packet_coding.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"

namespace vistrelle::platform {
namespace {

constexpr int kVideoParameterSet = 32;
constexpr int kPictureParameterSet = 34;

/// The parameter sets of a byte stream; nothing when one is of a further layer, which the decoder does not look at.
std::optional<std::vector<std::uint8_t>> parameterSetsOf(std::span<const std::uint8_t> stream) {
  std::vector<std::uint8_t> sets;
  for (const std::span<const std::uint8_t> unit : unitsOf(stream)) {
    const int type = unit[0] >> 1 & 0x3f;
    if (type < kVideoParameterSet || type > kPictureParameterSet) continue;
    const int layer = unit.size() < 2 ? 0 : (unit[0] & 1) << 5 | unit[1] >> 3;
    if (layer > 0) return std::nullopt;
    sets.insert(sets.end(), {0, 0, 0, 1});
    sets.insert(sets.end(), unit.begin(), unit.end());
  }
  return sets;
}

bool decoderAccepts(const std::vector<std::uint8_t>& sets, const MediaLimits& limits) {
  const AVCodec* codec = findDecoder(AV_CODEC_ID_HEVC);
  const AvPtr<AVCodecContext> decoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  if (!decoder) return false;
  decoder->extradata = static_cast<std::uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (decoder->extradata == nullptr) return false;
  std::memcpy(decoder->extradata, sets.data(), sets.size());
  decoder->extradata_size = static_cast<int>(sets.size());
  decoder->err_recognition = AV_EF_EXPLODE;
  decoder->thread_count = 1;
  decoder->max_pixels = limits.maxPixels;
  return avcodec_open2(decoder.get(), codec, nullptr) >= 0;
}

}  // namespace

bool hasSoundParameterSets(const AVCodecParameters& parameters, const AVPacket& first, const MediaLimits& limits) {
  if (parameters.codec_id != AV_CODEC_ID_HEVC) return true;
  const bool hasExtra = parameters.extradata_size > 0;
  const std::span<const std::uint8_t> bytes(
      hasExtra ? parameters.extradata : first.data,
      static_cast<std::size_t>(hasExtra ? parameters.extradata_size : first.size));
  // A configuration record, which begins with its version, is copied as it is.
  if (bytes.empty() || bytes[0] != 0) return true;
  const auto sets = parameterSetsOf(bytes);
  return sets && (sets->empty() || decoderAccepts(*sets, limits));
}

}  // namespace vistrelle::platform
