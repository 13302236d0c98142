#pragma once

#include <functional>
#include <span>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/confined/channel.h"

namespace vistrelle::platform {

// More than any movie has a use for.
constexpr std::size_t kMostMetadataBytes = std::size_t{64} << 20;
constexpr std::size_t kMostDetailsBytes = std::size_t{1} << 20;
constexpr std::size_t kMostSampleBytes = std::size_t{256} << 20;

/// Sends bytes of any length, in messages as long as one may be; an empty one for no bytes.
void sendInPieces(std::span<const std::byte> bytes, const std::function<void(const Message&)>& send);

/// Puts them together again, `most` bytes at most. Memory grows with what has come, whatever is still announced.
class PieceReader {
 public:
  explicit PieceReader(std::size_t most) : most_(most) {}
  /// False for a message that is no piece, or one too many.
  bool take(const Message& message);
  bool isComplete() const { return isComplete_; }
  Data takeBytes() { return std::move(bytes_); }

 private:
  std::size_t most_;
  bool isComplete_ = false;
  Data bytes_;
};

}  // namespace vistrelle::platform
