#include "vistrelle/platform/media/export/packet_samples.h"

#include <algorithm>
#include <optional>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/packet_coding.h"
#include "vistrelle/platform/media/export/packet_times.h"
#include "vistrelle/platform/media/export/sample_entry.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {
namespace {

bool fail(std::string* error, std::string text) {
  if (error != nullptr) *error = std::move(text);
  return false;
}

/// Bytes of one sample of all channels where they are all alike; 0 for coded sound.
std::uint32_t uncompressedBytes(const AVCodecParameters& parameters) {
  const int bits = av_get_bits_per_sample(parameters.codec_id);
  const bool isPlain = av_get_exact_bits_per_sample(parameters.codec_id) == bits && bits >= 8;
  const bool isAdpcm = bits > 0 && bits < 8;
  return isPlain && !isAdpcm ? static_cast<std::uint32_t>(bits / 8 * channelCount(parameters)) : 0;
}

/// Whether a stated time can be counted in ticks of `scale`, with room for sums.
bool isCountable(std::int64_t time, AVRational timeBase, std::uint32_t scale) {
  constexpr std::int64_t kMost = std::int64_t{1} << 60;
  const auto isWithin = [](std::int64_t value) { return value >= -kMost && value <= kMost; };
  return time == AV_NOPTS_VALUE ||
         (isWithin(time) && isWithin(av_rescale_q(time, timeBase, {1, static_cast<int>(scale)})));
}

}  // namespace

struct PacketSamples::State {
  struct Stream {
    int index = 0;
    const StreamFacts* facts = nullptr;
    std::unique_ptr<PacketCoding> coding;
    std::unique_ptr<PictureTimes> pictures;
    std::optional<SoundTimes> sound;
    mov::SampleTables tables;
  };
  /// A sample on its way: which stream, whose packet, where it lies in the sequence of all samples.
  using Take = std::function<bool(Stream& stream, const AVPacket& packet, std::span<const std::uint8_t> bytes)>;

  bool read(const Take& take, std::string* error);
  bool addSample(Stream& stream, const AVPacket& packet, std::span<const std::uint8_t> bytes, std::string* error);
  bool finishTables(std::string* error);
  bool isAviMovie() const { return std::string_view(demuxer->context()->iformat->name) == "avi"; }

  std::shared_ptr<MovieSource> movie;
  std::vector<Stream> streams;
  std::function<bool()> isCancelled;
  std::unique_ptr<Demuxer> demuxer;
  std::int64_t position = 0;
};

/// Reads the movie from its start, all streams asked for.
bool PacketSamples::State::read(const Take& take, std::string* error) {
  demuxer = movie->makeDemuxer(error);
  if (!demuxer) return false;
  const bool isAvi = isAviMovie();
  for (int i = 0; i < demuxer->streamCount(); ++i) demuxer->stream(i)->discard = AVDISCARD_ALL;
  for (Stream& stream : streams) {
    demuxer->stream(stream.index)->discard = AVDISCARD_DEFAULT;
    stream.coding = PacketCoding::make(*demuxer->stream(stream.index), *stream.facts->parameters, isAvi, error);
    if (!stream.coding) return false;
  }
  const AvPtr<AVPacket> packet(av_packet_alloc());
  if (!packet) return fail(error, avErrorText(AVERROR(ENOMEM)));
  bool isWanted = true;
  const auto push = [&](Stream& stream, AVPacket* next) {
    const int status = stream.coding->push(next, [&](const AVPacket& given, std::span<const std::uint8_t> bytes) {
      isWanted = isWanted && take(stream, given, bytes);
    });
    if (status < 0 && isWanted) return fail(error, avErrorText(status));
    return isWanted;
  };
  int status = 0;
  while ((status = demuxer->read(*packet)) >= 0) {
    if (isCancelled && isCancelled()) return fail(error, "cancelled");
    for (Stream& stream : streams) {
      if (stream.index == packet->stream_index && !push(stream, packet.get())) return false;
    }
  }
  if (status != AVERROR_EOF) return fail(error, avErrorText(status));
  return std::ranges::all_of(streams, [&](Stream& stream) { return push(stream, nullptr); });
}

bool PacketSamples::State::addSample(Stream& stream, const AVPacket& packet, std::span<const std::uint8_t> bytes,
                                     std::string* error) {
  const AVStream& source = *demuxer->stream(stream.index);
  const AVCodecParameters& parameters = stream.coding->parameters();
  if (stream.tables.descriptions.empty()) {
    auto made = makeTrackTables(source, parameters, packet, movie->interrupt()->limits, error);
    if (!made) return false;
    stream.tables = std::move(*made);
    stream.tables.header.isEnabled = stream.facts->isEnabled;
    if (stream.facts->type == MediaType::video) {
      stream.pictures = std::make_unique<PictureTimes>(parameters, isAviMovie());
      stream.tables.timeScale = static_cast<std::uint32_t>(source.time_base.den);
    } else if (stream.facts->type == MediaType::audio) {
      stream.sound.emplace(parameters.sample_rate);
      stream.tables.timeScale = static_cast<std::uint32_t>(parameters.sample_rate);
      stream.tables.packetBytes = uncompressedBytes(parameters);
    } else {
      stream.tables.timeScale = static_cast<std::uint32_t>(source.time_base.den);
    }
  }
  for (const std::int64_t stated : {packet.pts, packet.dts, packet.duration}) {
    if (isCountable(stated, source.time_base, stream.tables.timeScale)) continue;
    return fail(error, format("track {} states times that no movie can hold", stream.facts->trackId));
  }
  mov::Sample sample;
  sample.offset = position;
  position += std::ssize(bytes);
  sample.size = static_cast<std::uint32_t>(bytes.size());
  sample.isSync = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (stream.pictures) {
    stream.pictures->add(packet);
  } else if (stream.sound) {
    sample.isSync = true;
    if (stream.tables.packetBytes != 0) {
      sample.count = sample.size / stream.tables.packetBytes;
      sample.size = stream.tables.packetBytes;
      sample.duration = 1;
      if (sample.count == 0) return true;
    } else {
      // The length by the coding; a container's own is rounded to its clock.
      AVCodecParameters* mutableParameters = stream.facts->parameters.get();
      std::int64_t length = av_get_audio_frame_duration2(mutableParameters, packet.size);
      if (length <= 0) length = av_rescale_q(packet.duration, source.time_base, {1, parameters.sample_rate});
      sample.duration = static_cast<std::uint32_t>(std::clamp<std::int64_t>(length, 1, 0x7fffffff));
    }
    sample.decodeTime = stream.sound->next(packet, source.time_base, sample.span());
  } else {
    const std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time == AV_NOPTS_VALUE) return true;
    sample.decodeTime = time * source.time_base.num;
    sample.duration =
        static_cast<std::uint32_t>(std::clamp<std::int64_t>(packet.duration * source.time_base.num, 1, 0x7fffffff));
  }
  stream.tables.samples.push_back(sample);
  return true;
}

bool PacketSamples::State::finishTables(std::string* error) {
  for (Stream& stream : streams) {
    if (stream.tables.descriptions.empty()) {
      return fail(error, format("track {} has no samples", stream.facts->trackId));
    }
    if (!stream.pictures) continue;
    const std::int64_t factor = movie->timeBase(stream.index).num;
    if (!stream.pictures->apply(stream.tables.samples, factor)) {
      return fail(error, format("the pictures of track {} have no times that a movie can hold", stream.facts->trackId));
    }
    stream.pictures.reset();
  }
  return true;
}

PacketSamples::PacketSamples(std::unique_ptr<State> state) : state_(std::move(state)) {}
PacketSamples::~PacketSamples() = default;

std::unique_ptr<PacketSamples> PacketSamples::open(std::shared_ptr<MovieSource> movie, const std::vector<int>& streams,
                                                   const std::function<bool()>& isCancelled, std::string* error) {
  auto state = std::make_unique<State>();
  state->movie = std::move(movie);
  state->isCancelled = isCancelled;
  for (const int index : streams) {
    State::Stream& stream = state->streams.emplace_back();
    stream.index = index;
    stream.facts = &state->movie->streams()[static_cast<std::size_t>(index)];
  }
  State& reading = *state;
  const auto take = [&reading, error](State::Stream& stream, const AVPacket& packet,
                                      std::span<const std::uint8_t> bytes) {
    return reading.addSample(stream, packet, bytes, error);
  };
  if (!reading.read(take, error) || !reading.finishTables(error)) return nullptr;
  reading.demuxer.reset();
  return std::unique_ptr<PacketSamples>(new PacketSamples(std::move(state)));
}

mov::SampleTables PacketSamples::takeTables(std::size_t n) {
  return std::move(state_->streams[n].tables);
}

bool PacketSamples::copy(std::span<const ByteRange> ranges, const ByteSink& sink, std::string* error) {
  std::size_t next = 0;
  std::int64_t position = 0;
  bool isRefused = false;
  std::string cause;
  const auto take = [&](State::Stream&, const AVPacket&, std::span<const std::uint8_t> bytes) {
    const std::int64_t end = position + std::ssize(bytes);
    while (next < ranges.size() && ranges[next].start < end) {
      const std::int64_t from = std::max(ranges[next].start, position);
      const std::int64_t to = std::min(ranges[next].end(), end);
      if (to > from &&
          !sink(bytes.subspan(static_cast<std::size_t>(from - position), static_cast<std::size_t>(to - from)))) {
        isRefused = true;
        return false;
      }
      if (ranges[next].end() > end) break;
      ++next;
    }
    position = end;
    return next < ranges.size();
  };
  const bool isRead = state_->read(take, &cause);
  state_->demuxer.reset();
  if (isRefused) return false;
  if (next == ranges.size()) return true;
  return fail(error, isRead ? "the movie has changed" : cause);
}

}  // namespace vistrelle::platform
