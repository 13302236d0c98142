#include <algorithm>
#include <limits>

#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kMaxTimeScale = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kUsualTimeScale = 600;

void append(std::vector<Piece>& pieces, const Piece& piece) {
  if (!pieces.empty() && pieces.back().source == piece.source) {
    Piece& last = pieces.back();
    const bool continues =
        piece.source == nullptr || (last.media + last.mediaLength == piece.media && last.stretch() == piece.stretch());
    if (continues) {
      last.mediaLength = last.mediaLength + piece.mediaLength;
      last.length = last.length + piece.length;
      return;
    }
  }
  pieces.push_back(piece);
}

/// The sample entry that a piece begins with.
const std::vector<std::uint8_t>& entryOf(const SourceTrack& source) {
  const mov::SampleTables& tables = source.tables;
  const std::size_t index = tables.samples.empty() ? 0 : tables.samples.front().description;
  return tables.descriptions[std::min(index, tables.descriptions.size() - 1)];
}

bool startsAlike(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b, std::size_t from,
                 std::size_t to) {
  if (a.size() < to || b.size() < to) return false;
  const auto first = static_cast<std::ptrdiff_t>(from);
  return std::equal(a.begin() + first, a.begin() + static_cast<std::ptrdiff_t>(to), b.begin() + first);
}

/// Readers take a track's matrix and, of several descriptions, the kind of coding from one place for the whole track:
/// of a track with two codings libavformat (5.1) reads the first one's samples only and GStreamer (1.22) none behind
/// them, so that a further track is what more of them play. Sound of another rate or channel count, and uncompressed
/// sound of any other layout, would be read as the first.
bool canShare(const SourceTrack& a, const SourceTrack& b) {
  if (&a == &b) return true;
  const std::vector<std::uint8_t>& one = entryOf(a);
  const std::vector<std::uint8_t>& other = entryOf(b);
  if (a.tables.header.handler != b.tables.header.handler || !startsAlike(one, other, 4, 8)) return false;
  if (a.type == MediaType::video) return a.tables.header.matrix == b.tables.header.matrix;
  if (a.type != MediaType::audio) return true;
  if (a.tables.packetBytes != b.tables.packetBytes || a.tables.packetSamples != b.tables.packetSamples) return false;
  if (a.isUncompressedSound()) return one == other;
  // Version, channels and sample rate of the sound description (14496-12, 12.2.3).
  return startsAlike(one, other, 16, 18) && startsAlike(one, other, 24, 26) && startsAlike(one, other, 32, 36);
}

}  // namespace

std::vector<Piece> piecesOf(const std::vector<Segment>& segments, const SourceTracks& sources) {
  std::vector<Piece> pieces;
  Ratio position;
  for (const Segment& segment : segments) {
    const Ratio start = Ratio::of(segment.target.start);
    const Ratio length = Ratio::of(segment.target.duration);
    const Ratio sourceLength = Ratio::of(segment.source.duration);
    if (length <= Ratio()) continue;
    if (start > position) append(pieces, {nullptr, {}, {}, position, start - position});
    position = start + length;
    if (!segment.track || sourceLength <= Ratio()) {
      append(pieces, {nullptr, {}, {}, start, length});
      continue;
    }
    const SourceTrack& source = sources.of(*segment.track);
    const Ratio stretch = length / sourceLength;
    for (const MediaStretch& part : mediaOf(source, Ratio::of(segment.source.start), sourceLength)) {
      const Ratio at = start + part.start * stretch;
      const Ratio lasts = part.length * stretch;
      append(pieces,
             part.media ? Piece{&source, *part.media, part.length, at, lasts} : Piece{nullptr, {}, {}, at, lasts});
    }
  }
  return pieces;
}

std::vector<std::vector<Piece>> tracksOf(const std::vector<Piece>& pieces) {
  std::vector<const SourceTrack*> kinds;
  for (const Piece& piece : pieces) {
    if (piece.source == nullptr) continue;
    if (std::ranges::none_of(kinds, [&](const SourceTrack* kind) { return canShare(*kind, *piece.source); })) {
      kinds.push_back(piece.source);
    }
  }
  std::vector<std::vector<Piece>> tracks;
  for (const SourceTrack* kind : kinds) {
    std::vector<Piece> track;
    for (const Piece& piece : pieces) {
      const bool isHere = piece.source != nullptr && canShare(*kind, *piece.source);
      append(track, isHere ? piece : Piece{nullptr, {}, {}, piece.start, piece.length});
    }
    if (kinds.size() > 1 && track.back().source == nullptr) track.pop_back();
    tracks.push_back(std::move(track));
  }
  return tracks;
}

std::int64_t movieTimeScaleOf(const std::vector<std::vector<Piece>>& tracks) {
  std::int64_t scale = 1;
  for (const std::vector<Piece>& track : tracks) {
    for (const Piece& piece : track) {
      if (const std::int64_t finer = commonMultiple(scale, piece.end().denominator(), kMaxTimeScale)) scale = finer;
    }
  }
  // A scale that says next to nothing would be legal and odd.
  if (scale < kUsualTimeScale) scale = commonMultiple(scale, kUsualTimeScale, kMaxTimeScale);
  return scale;
}

}  // namespace vistrelle::platform
