#include "vistrelle/platform/media/export/splice.h"

#include <cstddef>

namespace vistrelle::platform {

bool markSplice(std::span<std::uint8_t> sample, int lengthBytes) {
  constexpr int kCleanRandomAccess = 21;
  constexpr int kBrokenLink = 16;  // with leading pictures
  const auto field = static_cast<std::size_t>(lengthBytes);
  bool changed = false;
  while (sample.size() > field) {
    std::size_t length = 0;
    for (const std::uint8_t byte : sample.first(field)) length = length << 8 | byte;
    sample = sample.subspan(field);
    if (length == 0 || length > sample.size()) return changed;
    if ((sample[0] >> 1 & 0x3f) == kCleanRandomAccess) {
      sample[0] = static_cast<std::uint8_t>((sample[0] & 0x81) | kBrokenLink << 1);
      changed = true;
    }
    sample = sample.subspan(length);
  }
  return changed;
}

}  // namespace vistrelle::platform
