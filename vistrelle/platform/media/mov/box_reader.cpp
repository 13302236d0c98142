#include "vistrelle/platform/media/mov/box_reader.h"

#include <algorithm>

namespace vistrelle::platform::mov {

std::optional<Box> BoxList::next() {
  constexpr std::size_t kHeaderBytes = 8;
  constexpr std::size_t kWideHeaderBytes = 16;
  if (cursor_.remaining() < kHeaderBytes) return std::nullopt;
  std::uint64_t size = cursor_.u32();
  Box box;
  box.type = cursor_.u32();
  std::size_t header = kHeaderBytes;
  if (size == 1) {
    size = cursor_.u64();
    header = kWideHeaderBytes;
  } else if (size == 0) {
    size = header + cursor_.remaining();  // to the end of what encloses it
  }
  if (!cursor_.isGood() || size < header) return std::nullopt;
  box.content = cursor_.bytes(static_cast<std::size_t>(std::min<std::uint64_t>(size - header, cursor_.remaining())));
  return box;
}

std::optional<Box> findBox(std::span<const std::uint8_t> bytes, FourCc type) {
  BoxList boxes(bytes);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == type) return box;
  }
  return std::nullopt;
}

FullBoxHeader readFullBoxHeader(Cursor& cursor) {
  const std::uint32_t word = cursor.u32();
  return {static_cast<std::uint8_t>(word >> 24), word & 0xffffff};
}

}  // namespace vistrelle::platform::mov
