#include "vistrelle/platform/media/ffmpeg/clock_pieces.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>

namespace vistrelle::platform {

std::int64_t ClockPieces::offsetAt(std::int64_t position) const {
  const auto next = std::upper_bound(pieces_.begin() + 1, pieces_.end(), position,
                                     [](std::int64_t at, const Piece& piece) { return at < piece.position; });
  return std::prev(next)->offset;
}

std::int64_t ClockPieces::positionOf(std::int64_t time) const {
  const auto next = std::upper_bound(pieces_.begin() + 1, pieces_.end(), time,
                                     [](std::int64_t at, const Piece& piece) { return at < piece.start; });
  const Piece& piece = *std::prev(next);
  const std::int64_t endPosition = next == pieces_.end() ? size_ : next->position;
  const std::int64_t end = next == pieces_.end() ? end_ : next->start;
  const std::int64_t within =
      std::clamp<std::int64_t>(time - piece.start, 0, std::max<std::int64_t>(0, end - piece.start));
  return piece.position +
         av_rescale(endPosition - piece.position, within, std::max<std::int64_t>(1, end - piece.start));
}

}  // namespace vistrelle::platform
