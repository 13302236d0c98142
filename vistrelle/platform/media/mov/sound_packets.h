#pragma once

#include <cstdint>
#include <span>

namespace vistrelle::platform::mov {

/// How sound samples of one duration unit each lie in a file: `samples` of them take `bytes` bytes.
struct SoundPackets {
  std::uint32_t bytes = 0;
  std::uint32_t samples = 1;
};

/// Reads a complete sound sample entry (14496-12, 12.2.3, and QuickTime's versions 1 and 2). Old movies state a size of
/// one byte a sample where the entry knows better; `statedSize` holds where it says nothing.
SoundPackets soundPackets(std::span<const std::uint8_t> entry, std::uint32_t statedSize);

}  // namespace vistrelle::platform::mov
