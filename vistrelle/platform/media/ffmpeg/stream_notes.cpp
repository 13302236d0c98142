#include "vistrelle/platform/media/ffmpeg/stream_notes.h"

extern "C" {
#include <libavutil/dovi_meta.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <numeric>
#include <string_view>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/codec_code.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/track_shape.h"

namespace vistrelle::platform {
namespace {

std::vector<FormatDescription> descriptionsOf(const mov::Track& track) {
  std::vector<FormatDescription> descriptions;
  for (const mov::SampleEntry& entry : track.sampleEntries) {
    FormatDescription description;
    description.code = mov::textOf(entry.type);
    description.width = entry.width;
    description.height = entry.height;
    if (entry.width > 0) description.cleanAperture = cleanRect(entry.cleanAperture, entry.width, entry.height);
    descriptions.push_back(std::move(description));
  }
  return descriptions;
}

std::vector<FormatDescription> descriptionsOf(const AVFormatContext& container, const AVCodecParameters& parameters) {
  FormatDescription description;
  description.code = codecCode(container, parameters);
  if (description.code.empty()) return {};
  if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
    description.width = parameters.width;
    description.height = parameters.height;
    description.cleanAperture = cleanRect(std::nullopt, parameters.width, parameters.height);
  }
  return {std::move(description)};
}

AVRational containerAspect(const AVStream& stream, const mov::Track* track) {
  AVRational aspect{0, 1};
  if (const auto stated = track != nullptr ? shapeOf(*track).pixelAspect : std::nullopt) {
    av_reduce(&aspect.num, &aspect.den, stated->horizontal, stated->vertical, 1 << 24);
  }
  for (const AVRational other : {stream.sample_aspect_ratio, stream.codecpar->sample_aspect_ratio}) {
    if (aspect.num <= 0 && other.num > 0 && other.den > 0) aspect = other;
  }
  return aspect;
}

std::optional<Orientation> orientationOf(const AVStream& stream) {
  const std::span<const std::uint8_t> matrix = streamSideData(stream, AV_PKT_DATA_DISPLAYMATRIX);
  std::array<std::int32_t, 9> values{};
  if (matrix.size() < sizeof values) return std::nullopt;
  std::memcpy(values.data(), matrix.data(), sizeof values);
  return orientationOfMatrix(values);
}

std::optional<DolbyVision> dolbyVisionOf(const AVStream& stream) {
  const std::span<const std::uint8_t> bytes = streamSideData(stream, AV_PKT_DATA_DOVI_CONF);
  AVDOVIDecoderConfigurationRecord record{};
  if (bytes.size() < sizeof record) return std::nullopt;
  std::memcpy(&record, bytes.data(), sizeof record);
  return DolbyVision{record.dv_profile, record.dv_bl_signal_compatibility_id};
}

FrameRate reduced(std::uint64_t numerator, std::uint64_t denominator) {
  const std::uint64_t divisor = std::gcd(numerator, denominator);
  FrameRate rate;
  rate.numerator = static_cast<std::int64_t>(numerator / divisor);
  rate.denominator = static_cast<std::int64_t>(denominator / divisor);
  return rate;
}

std::optional<FrameRate> sampleRate(const mov::Track& track) {
  const mov::SampleFacts& samples = track.samples;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  if (samples.count == 0 || samples.duration == 0 || track.timeScale == 0) return std::nullopt;
  if (samples.sampleDuration > 0) {
    FrameRate rate = reduced(track.timeScale, samples.sampleDuration);
    rate.varies = false;
    return rate;
  }
  if (samples.count > kMost) return std::nullopt;  // such a table is not one of frames
  FrameRate rate = reduced(samples.count * track.timeScale, samples.duration);
  rate.varies = true;
  return rate;
}

/// Containers whose frames all last equally long by their definition.
bool hasConstantRate(const AVFormatContext& container) {
  const std::string_view name = container.iformat->name;
  return name == "avi" || name.starts_with("mxf") || name == "dv" || name == "gxf" || name == "yuv4mpegpipe";
}

std::optional<FrameRate> statedRate(const AVFormatContext& container, const AVStream& stream) {
  const AVRational rate = stream.avg_frame_rate;
  if (rate.num <= 0 || rate.den <= 0 || av_q2d(rate) > kFastestFrameRate) return std::nullopt;
  FrameRate stated = reduced(static_cast<std::uint64_t>(rate.num), static_cast<std::uint64_t>(rate.den));
  if (hasConstantRate(container)) stated.varies = false;
  return stated;
}

OptionalText entryOf(const AVDictionary* dictionary, const char* key) {
  const AVDictionaryEntry* entry = av_dict_get(dictionary, key, nullptr, 0);
  if (entry == nullptr || entry->value[0] == '\0') return std::nullopt;
  return entry->value;
}

MediaTime timeOf(std::uint64_t value, std::uint32_t scale) {
  constexpr auto kMostTicks = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  constexpr std::uint32_t kMostScale = std::numeric_limits<std::int32_t>::max();
  if (scale == 0 || scale > kMostScale || value > kMostTicks) return MediaTime::invalid();
  return MediaTime::make(static_cast<std::int64_t>(value), static_cast<std::int32_t>(scale));
}

MediaTime durationOfSamples(const mov::Track* track) {
  return track == nullptr ? MediaTime::invalid() : timeOf(track->samples.duration, track->timeScale);
}

/// Samples in another file are not looked for.
bool indexReachesBeyond(const AVStream& stream, std::int64_t fileSize) {
  auto* indexed = const_cast<AVStream*>(&stream);  // only read; libavformat's signature does not say so
  for (int i = avformat_index_get_entries_count(&stream) - 1; i >= 0; --i) {
    const AVIndexEntry* entry = avformat_index_get_entry(indexed, i);
    if (entry->size > fileSize || entry->pos > fileSize - entry->size) return true;
  }
  return false;
}

MediaTime durationInHeader(const AVStream& stream, const mov::Track* track) {
  constexpr std::uint64_t kUnknown32 = std::numeric_limits<std::uint32_t>::max();
  if (track != nullptr) {
    const bool isStated = track->headerDuration != kUnknown32;
    return isStated ? timeOf(track->headerDuration, track->timeScale) : MediaTime::invalid();
  }
  if (stream.duration <= 0 || stream.time_base.num <= 0 || stream.time_base.den <= 0) return MediaTime::invalid();
  std::int64_t ticks = 0;
  if (__builtin_mul_overflow(stream.duration, std::int64_t{stream.time_base.num}, &ticks)) return MediaTime::invalid();
  return MediaTime::make(ticks, stream.time_base.den);
}

}  // namespace

StreamNotes noteStream(const AVFormatContext& container, const AVStream& stream, MediaType type,
                       const mov::Track* track, bool isLookedInto) {
  StreamNotes notes;
  if (track != nullptr && track->handler != 0) notes.mediaTypeCode = mov::textOf(track->handler);
  notes.descriptions = track != nullptr ? descriptionsOf(*track) : descriptionsOf(container, *stream.codecpar);
  notes.isLookedInto = isLookedInto;
  notes.language = entryOf(stream.metadata, "language");
  if (track != nullptr && !track->language.empty()) notes.language = track->language;
  notes.timecode = entryOf(stream.metadata, "timecode");
  if (!notes.timecode) notes.timecode = entryOf(container.metadata, "timecode");
  notes.headerDuration = durationInHeader(stream, track);
  notes.sampleDuration = durationOfSamples(track);
  notes.reachesBeyondFile = track != nullptr && indexReachesBeyond(stream, avio_size(container.pb));
  if (type != MediaType::video) return notes;
  notes.pixelAspect = containerAspect(stream, track);
  notes.orientation = orientationOf(stream);
  notes.dolbyVision = dolbyVisionOf(stream);
  notes.hasStaticHdrMetadata = !streamSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA).empty() ||
                               !streamSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL).empty();
  notes.frameRate = track != nullptr ? sampleRate(*track) : statedRate(container, stream);
  return notes;
}

void completeFrameRate(StreamNotes& notes, const PacketSpan& packets, const TimeRange& range, float guessed) {
  const MediaTime& duration = range.duration;
  const auto count = static_cast<std::uint64_t>(packets.count);
  std::uint64_t ticks = 0;
  if (!notes.frameRate && count > 0 && duration.isNumeric() && duration.value > 0 &&
      !__builtin_mul_overflow(count, static_cast<std::uint64_t>(duration.scale), &ticks)) {
    notes.frameRate = reduced(ticks, static_cast<std::uint64_t>(duration.value));
  }
  if (!notes.frameRate && guessed > 0) {
    constexpr int kLargest = 100000;
    const AVRational rate = av_d2q(guessed, kLargest);
    if (rate.num > 0 && rate.den > 0) notes.frameRate = FrameRate{rate.num, rate.den, std::nullopt};
  }
  if (notes.frameRate && !notes.frameRate->varies) notes.frameRate->varies = packets.varies;
}

}  // namespace vistrelle::platform
