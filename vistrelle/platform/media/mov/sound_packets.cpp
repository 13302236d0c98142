#include "vistrelle/platform/media/mov/sound_packets.h"

#include "vistrelle/platform/media/mov/box_reader.h"

namespace vistrelle::platform::mov {
namespace {

/// Bits of one channel's sample in formats that are a constant number of them; 0 for others.
std::uint32_t bitsOf(FourCc type, std::uint32_t stated) {
  switch (type) {
    case fourCc("raw "):
    case fourCc("twos"):
    case fourCc("sowt"):
    case fourCc("NONE"):
    case 0:
      return stated;
    case fourCc("ulaw"):
    case fourCc("alaw"):
      return 8;
    case fourCc("in24"):
      return 24;
    case fourCc("in32"):
    case fourCc("fl32"):
      return 32;
    case fourCc("fl64"):
      return 64;
    default:
      return 0;
  }
}

}  // namespace

SoundPackets soundPackets(std::span<const std::uint8_t> entry, std::uint32_t statedSize) {
  Cursor cursor(entry);
  cursor.skip(4);
  const FourCc type = cursor.u32();
  cursor.skip(8);
  const std::uint16_t version = cursor.u16();
  cursor.skip(6);
  const std::uint32_t channels = cursor.u16();
  const std::uint32_t bits = cursor.u16();
  cursor.skip(8);
  SoundPackets packets{statedSize, 1};
  if (version == 1) {
    const std::uint32_t samples = cursor.u32();
    cursor.skip(4);
    const std::uint32_t bytes = cursor.u32();
    if (cursor.isGood() && samples > 1 && bytes > 0) return {bytes, samples};
  } else if (version == 2) {
    cursor.skip(4 + 8);
    const std::uint32_t many = cursor.u32();
    cursor.skip(4);
    const std::uint32_t each = cursor.u32();
    cursor.skip(4);
    const std::uint32_t bytes = cursor.u32();
    const std::uint32_t samples = cursor.u32();
    if (cursor.isGood() && bytes > 0 && samples > 0) return {bytes, samples};
    if (cursor.isGood() && type == fourCc("lpcm") && many * each >= 8) return {many * each / 8, 1};
    return packets;
  }
  const std::uint32_t exact = bitsOf(type, bits) * channels / 8;
  if (exact > 0) packets.bytes = exact;
  return packets;
}

}  // namespace vistrelle::platform::mov
