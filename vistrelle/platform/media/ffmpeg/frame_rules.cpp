#include "vistrelle/platform/media/ffmpeg/frame_rules.h"

extern "C" {
#include <libavutil/dovi_meta.h>
}

#include <array>
#include <cstring>
#include <span>

#include "vistrelle/platform/media/ffmpeg/av_version.h"

namespace vistrelle::platform {

namespace {

AVRational frameRateOf(const StreamFacts& facts, FramePackets& packets) {
  AVStream* stream = packets.stream();
  // The exact fraction, where the stream has the one that the facts were rounded from.
  for (const AVRational rate : {stream->avg_frame_rate, stream->r_frame_rate}) {
    if (rate.num > 0 && rate.den > 0 && static_cast<float>(av_q2d(rate)) == facts.frameRate) return rate;
  }
  const AVRational meant = rateFromFloat(facts.frameRate);
  return meant.num > 0 ? meant : av_guess_frame_rate(packets.demuxer()->context(), stream, nullptr);
}

// Codes of the tape format (SMPTE 356M) at 30, 40 and 50 Mbit/s in 525 and 625 lines. A sample description that does
// not count the blanking states no aperture either.
bool isTapeFormat(std::uint32_t tag) {
  return (tag & MKTAG(0xff, 0xff, 0, 0)) == MKTAG('m', 'x', 0, 0) && (tag >> 16 & 0xff) >= '3' &&
         (tag >> 16 & 0xff) <= '5' && (tag >> 24 == 'n' || tag >> 24 == 'p');
}

}  // namespace

bool lacksBaseLayer(const AVStream& stream) {
  const std::span<const std::uint8_t> data = streamSideData(stream, AV_PKT_DATA_DOVI_CONF);
  AVDOVIDecoderConfigurationRecord record{};
  if (data.size() < sizeof record) return false;
  std::memcpy(&record, data.data(), sizeof record);
  return record.dv_profile == 5;
}

FrameShape frameShapeOf(const StreamFacts& facts, const AVStream& stream) {
  FrameShape shape;
  shape.cleanAperture = facts.cleanAperture;
  const AVCodecParameters& parameters = *facts.parameters;
  if (facts.pixelAspect) {
    av_reduce(&shape.pixelAspect.num, &shape.pixelAspect.den, facts.pixelAspect->horizontal,
              facts.pixelAspect->vertical, 1 << 24);
  } else if (stream.sample_aspect_ratio.num > 0) {
    shape.pixelAspect = stream.sample_aspect_ratio;
  }
  if (isTapeFormat(parameters.codec_tag)) shape.linesBelowBlanking = parameters.height;
  const std::span<const std::uint8_t> matrix = streamSideData(stream, AV_PKT_DATA_DISPLAYMATRIX);
  std::array<std::int32_t, 9> values{};
  if (matrix.size() >= sizeof values) {
    std::memcpy(values.data(), matrix.data(), sizeof values);
    shape.orientation = orientationOfMatrix(values);
  }
  shape.colour.primaries = static_cast<std::uint8_t>(parameters.color_primaries);
  shape.colour.transfer = static_cast<std::uint8_t>(parameters.color_trc);
  shape.colour.matrix = static_cast<std::uint8_t>(parameters.color_space);
  shape.colour.range = static_cast<std::uint8_t>(parameters.color_range);
  return shape;
}

RunRules runRulesFor(MovieSource& source, int streamIndex, FramePackets& packets, TimesKind times) {
  const StreamFacts& facts = source.streams()[static_cast<std::size_t>(streamIndex)];
  RunRules rules;
  rules.isCounted = times != TimesKind::stated;
  rules.isIntraOnly = isIntraOnly(facts.parameters->codec_id);
  rules.decodingTimesHold = source.isMovFamily();
  rules.rate = frameRateOf(facts, packets);
  rules.hasGaps = times == TimesKind::notStated && rules.rate.num > 0 &&
                  av_cmp_q(packets.stream()->time_base, av_inv_q(rules.rate)) == 0;
  rules.landing = landingRules(source, streamIndex, packets);
  return rules;
}

}  // namespace vistrelle::platform
