#include "vistrelle/platform/media/export/pieces.h"

namespace vistrelle::platform {

MediaTime Piece::targetOf(const MediaTime& time) const {
  const MediaTime inside = time - source.start;
  return target.start + (isScaled() ? scaled(inside, target.duration, source.duration) : inside);
}

std::optional<std::vector<Piece>> piecesOf(const std::shared_ptr<Track>& track, std::string* error) {
  std::vector<Segment> segments;
  if (const auto* composed = dynamic_cast<const CompositionTrack*>(track.get())) {
    segments = composed->segments();
  } else if (const TimeRange range = track->timeRange(); range.isValid()) {
    segments = {Segment{track, range, range}};
  }
  std::vector<Piece> pieces;
  for (const Segment& segment : segments) {
    if (!segment.track || segment.target.duration <= MediaTime::zero()) continue;
    Piece piece{std::dynamic_pointer_cast<const MovieTrack>(segment.track), segment.source, segment.target};
    if (!piece.track || !piece.track->isDecodable()) {
      *error = "a track cannot be decoded";
      return std::nullopt;
    }
    if (piece.track->isProtected()) {
      *error = "the movie is protected";
      return std::nullopt;
    }
    pieces.push_back(std::move(piece));
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
