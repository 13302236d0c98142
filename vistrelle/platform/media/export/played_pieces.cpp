#include "vistrelle/platform/media/export/played_pieces.h"

namespace vistrelle::platform {

namespace {

/// Adds a piece, in parts where the track's edits say so.
void addPlayed(const PlayedPiece& piece, std::vector<PlayedPiece>& pieces) {
  const auto& edits = piece.track->facts().edits;
  if (!edits) {
    pieces.push_back(piece);
    return;
  }
  for (const FrameEdits::Shown& shown : edits->shownDuring(piece.source)) {
    const MediaTime start = piece.targetOf(shown.movie.start);
    pieces.push_back({piece.track, shown.media, {start, piece.targetOf(shown.movie.end()) - start}});
  }
}

}  // namespace

MediaTime PlayedPiece::targetOf(const MediaTime& time) const {
  const MediaTime inside = time - source.start;
  return target.start + (isScaled() ? scaled(inside, target.duration, source.duration) : inside);
}

std::optional<std::vector<PlayedPiece>> playedPiecesOf(const std::shared_ptr<Track>& track, std::string* error) {
  std::vector<Segment> segments;
  if (const auto* composed = dynamic_cast<const CompositionTrack*>(track.get())) {
    segments = composed->segments();
  } else if (const TimeRange range = track->timeRange(); range.isValid()) {
    segments = {Segment{track, range, range}};
  }
  std::vector<PlayedPiece> pieces;
  for (const Segment& segment : segments) {
    if (!segment.track || segment.target.duration <= MediaTime::zero()) continue;
    PlayedPiece piece{std::dynamic_pointer_cast<const MovieTrack>(segment.track), segment.source, segment.target};
    if (!piece.track || !piece.track->isDecodable()) {
      *error = "a track cannot be decoded";
      return std::nullopt;
    }
    if (piece.track->isProtected()) {
      *error = "the movie is protected";
      return std::nullopt;
    }
    addPlayed(piece, pieces);
  }
  return pieces;
}

MediaTime endOf(const Track& track) {
  if (const auto* composed = dynamic_cast<const CompositionTrack*>(&track)) {
    const std::vector<Segment> segments = composed->segments();
    return segments.empty() ? MediaTime::zero() : segments.back().target.end();
  }
  const TimeRange range = track.timeRange();
  return range.isValid() ? range.end() : MediaTime::zero();
}

std::int64_t unitsOf(const MediaTime& time, std::int32_t rate) {
  return time.convertedTo(rate).value;
}

}  // namespace vistrelle::platform
