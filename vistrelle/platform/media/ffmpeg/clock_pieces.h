#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace vistrelle::platform {

/// Where the clock of a transport or program stream starts again, as in recordings that were joined end to end, and
/// what to add to the times from there on so that they go on after the former ones. Times are packet times of 1/90000
/// s.
class ClockPieces {
 public:
  struct Piece {
    std::int64_t position = 0;  ///< in bytes, of the first packet
    std::int64_t offset = 0;    ///< added to the times that are stated
    std::int64_t start = 0;     ///< of its pictures, the offset added
  };

  /// `pieces` in the order of the file, the first one with an offset of 0; `size` and `end` where the last one ends.
  /// `lastPackets` are the positions of every stream's last two packets before another piece.
  ClockPieces(std::vector<Piece> pieces, std::set<std::int64_t> lastPackets, std::int64_t size, std::int64_t end)
      : pieces_(std::move(pieces)), lastPackets_(std::move(lastPackets)), size_(size), end_(end) {}

  std::size_t restarts() const { return pieces_.size() - 1; }
  std::int64_t offsetAt(std::int64_t position) const;
  bool endsPieceAt(std::int64_t position) const { return lastPackets_.contains(position); }
  /// A guess at where the packets of this time lie, as if every piece had a constant number of bytes a second.
  std::int64_t positionOf(std::int64_t time) const;

 private:
  std::vector<Piece> pieces_;
  std::set<std::int64_t> lastPackets_;
  std::int64_t size_;
  std::int64_t end_;
};

}  // namespace vistrelle::platform
