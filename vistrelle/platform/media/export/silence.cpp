#include "vistrelle/platform/media/export/silence.h"

#include <algorithm>
#include <optional>

#include "vistrelle/platform/media/export/silent_packet.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {
namespace {

constexpr std::uint32_t kAtOnce = 8192;  // samples of uncompressed silence in a piece

/// The same bytes for every sample.
class RepeatedBytes : public SampleStore {
 public:
  explicit RepeatedBytes(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  bool copy(std::span<const ByteRange> ranges, const ByteSink& sink, std::string*) override {
    return std::ranges::all_of(ranges, [&](const ByteRange& range) {
      return sink(
          std::span(bytes_).subspan(static_cast<std::size_t>(range.start), static_cast<std::size_t>(range.length)));
    });
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// The first packet that does not begin before `ticks`.
std::size_t packetFrom(const mov::SampleTables& tables, const Ratio& ticks) {
  const auto found = std::ranges::lower_bound(tables.samples, ticks.ceil(), {}, &mov::Sample::decodeTime);
  return static_cast<std::size_t>(found - tables.samples.begin());
}

/// How much of a piece's beginning is lost where it does not begin with a packet.
Ratio lossOf(const Piece& piece) {
  const mov::SampleTables& tables = piece.source->tables;
  const Ratio start = piece.media * Ratio(tables.timeScale);
  const std::size_t first = packetFrom(tables, start);
  if (first == tables.samples.size()) return piece.length;
  return (Ratio(tables.samples[first].decodeTime) - start) / Ratio(tables.timeScale) * piece.stretch();
}

/// Whether packets say themselves how many samples they hold; the others are played whole, however short the tables
/// say that the last one of a movie is.
bool saysItsLength(const SourceTrack& source) {
  const auto* inFile = dynamic_cast<const MovieTrack*>(source.track);
  const AVCodecID codec = inFile == nullptr ? AV_CODEC_ID_NONE : inFile->facts().parameters->codec_id;
  return codec == AV_CODEC_ID_ALAC || codec == AV_CODEC_ID_FLAC;
}

/// By how much the packets that libavformat plays of a piece last longer than the piece.
Ratio surplusOf(const Piece& piece, bool isFirst) {
  const mov::SampleTables& tables = piece.source->tables;
  const Ratio scale(tables.timeScale);
  const std::size_t first = packetFrom(tables, piece.media * scale);
  const std::size_t end = packetFrom(tables, (piece.media + piece.mediaLength) * scale);
  const std::int64_t usual = tables.samples[tables.samples.size() / 2].duration;
  const bool isExact = saysItsLength(*piece.source);
  std::int64_t ticks = 0;
  for (std::size_t i = first; i < end; ++i) ticks += isExact ? tables.samples[i].span() : usual;
  Ratio heard = Ratio(ticks) / scale;
  // Of the first edit's first packet the rest behind the edit's beginning is played.
  if (isFirst) heard = heard + lossOf(piece);
  return heard * piece.stretch() - piece.length;
}

Ratio magnitude(const Ratio& value) {
  return value < Ratio() ? Ratio() - value : value;
}

}  // namespace

struct Silence::Source {
  SourceTrack track;
  std::unique_ptr<RepeatedBytes> bytes;
  mov::Sample sample;      // every one is like this
  std::int64_t start = 0;  // where silence may be taken from, in ticks: what is before gets decoders going
  bool isPossible = false;

  void prepare(const SourceTrack& sound);
  void lengthenTo(const Ratio& seconds);
};

void Silence::Source::prepare(const SourceTrack& sound) {
  track.track = sound.track;
  track.movie = sound.movie;
  track.type = sound.type;
  track.soundLeadIn = sound.soundLeadIn;
  track.tables.id = sound.tables.id;
  track.tables.timeScale = sound.tables.timeScale;
  track.tables.header = sound.tables.header;
  track.tables.descriptions = sound.tables.descriptions;
  track.tables.packetBytes = sound.tables.packetBytes;
  track.tables.packetSamples = sound.tables.packetSamples;
  const auto* inFile = dynamic_cast<const MovieTrack*>(sound.track);
  if (inFile == nullptr || sound.tables.samples.empty()) return;
  const AVCodecParameters& parameters = *inFile->facts().parameters;
  sample = sound.tables.samples[sound.tables.samples.size() / 2];
  sample.offset = 0;
  sample.compositionOffset = 0;
  std::vector<std::uint8_t> content;
  if (sound.isUncompressedSound()) {
    const std::optional<std::uint8_t> value = silentByte(parameters);
    if (!value) return;
    sample.count = kAtOnce / track.tables.packetSamples * track.tables.packetSamples;
    content.assign(static_cast<std::size_t>(track.tables.bytesOf(sample)), *value);
  } else {
    const Ratio samples = Ratio(sample.duration, track.tables.timeScale) * Ratio(parameters.sample_rate);
    content = silentPacket(parameters, static_cast<int>(samples.rounded()));
    sample.size = static_cast<std::uint32_t>(content.size());
    start = std::int64_t{sample.duration} * track.soundLeadIn;
  }
  isPossible = !content.empty();
  bytes = std::make_unique<RepeatedBytes>(std::move(content));
  track.store = bytes.get();
}

void Silence::Source::lengthenTo(const Ratio& seconds) {
  const std::int64_t end = start + (seconds * Ratio(track.tables.timeScale)).ceil() + 2 * sample.span();
  std::vector<mov::Sample>& samples = track.tables.samples;
  std::int64_t time = samples.empty() ? 0 : samples.back().decodeTime + sample.span();
  for (; time < end; time += sample.span()) {
    samples.push_back(sample);
    samples.back().decodeTime = time;
  }
  track.endOfPresentation = time;
}

Silence::Silence() = default;
Silence::~Silence() = default;

Silence::Source& Silence::like(const SourceTrack& sound) {
  std::unique_ptr<Source>& source = sources_[&sound];
  if (!source) {
    source = std::make_unique<Source>();
    source->prepare(sound);
  }
  return *source;
}

void Silence::fill(std::vector<Piece>& track) {
  Ratio surplus;
  bool isFirst = true;
  for (std::size_t i = 0; i < track.size(); ++i) {
    Piece& piece = track[i];
    const SourceTrack* before = i == 0 ? nullptr : track[i - 1].source;
    if (piece.source == nullptr) {
      if (before == nullptr || before->type != MediaType::audio || i + 1 == track.size()) continue;
      Source& silence = like(*before);
      if (!silence.isPossible) continue;
      silence.lengthenTo(piece.length);
      const Ratio scale(silence.track.tables.timeScale);
      piece.source = &silence.track;
      piece.media = Ratio(silence.start) / scale;
      piece.mediaLength = piece.length;
      if (!silence.track.isUncompressedSound()) {
        // Begun a tick late, it loses the packet that libavformat would take for the one begun in time.
        Piece less = piece;
        less.media = Ratio(silence.start + 1) / scale;
        const Ratio aim = track[i + 1].source == nullptr ? Ratio() : lossOf(track[i + 1]) - surplus;
        if (magnitude(surplusOf(less, false) - aim) < magnitude(surplusOf(piece, false) - aim)) piece = less;
      }
    }
    if (piece.source->type != MediaType::audio || piece.source->isUncompressedSound()) continue;
    surplus = surplus + surplusOf(piece, isFirst);
    isFirst = false;
  }
}

}  // namespace vistrelle::platform
