#include "vistrelle/platform/media/confined/pieces.h"

#include <algorithm>

#include "vistrelle/platform/media/confined/worker_answers.h"

namespace vistrelle::platform {

void sendInPieces(std::span<const std::byte> bytes, const std::function<void(const Message&)>& send) {
  do {
    const auto piece = bytes.first(std::min(bytes.size(), kMaxTextBytes));
    bytes = bytes.subspan(piece.size());
    send(Message(number(wire::Kind::piece), wire::Piece{bytes.empty() ? 1U : 0U},
                 {reinterpret_cast<const char*>(piece.data()), piece.size()}));
  } while (!bytes.empty());
}

bool PieceReader::take(const Message& message) {
  wire::Piece piece;
  std::string_view bytes;
  if (isComplete_ || message.kind() != number(wire::Kind::piece) || !message.read(&piece, &bytes)) return false;
  if (piece.isLast > 1 || bytes.size() > most_ - bytes_.size()) return false;
  if (piece.isLast == 0 && bytes.size() != kMaxTextBytes) return false;  // so many messages and no more
  const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
  bytes_.insert(bytes_.end(), first, first + bytes.size());
  isComplete_ = piece.isLast == 1;
  return true;
}

}  // namespace vistrelle::platform
