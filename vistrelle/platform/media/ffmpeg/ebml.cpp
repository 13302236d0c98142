#include "vistrelle/platform/media/ffmpeg/ebml.h"

#include <bit>
#include <limits>

namespace vistrelle::platform {

std::optional<EbmlElement> ebmlElementAt(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t limit) {
  if (at >= limit || bytes[at] < 0x10) return std::nullopt;
  const auto lengthOf = [](std::uint8_t first) { return static_cast<std::size_t>(std::countl_zero(first)) + 1; };
  const std::size_t idLength = lengthOf(bytes[at]);
  if (at + idLength >= limit) return std::nullopt;
  EbmlElement element;
  for (std::size_t i = 0; i < idLength; ++i) element.id = element.id << 8 | bytes[at + i];
  at += idLength;
  const std::size_t sizeLength = lengthOf(bytes[at]);
  if (sizeLength > 8 || at + sizeLength > limit) return std::nullopt;
  std::uint64_t size = bytes[at] & (0xffU >> sizeLength);
  bool isUnknown = size == (0xffU >> sizeLength);
  for (std::size_t i = 1; i < sizeLength; ++i) {
    size = size << 8 | bytes[at + i];
    isUnknown = isUnknown && bytes[at + i] == 0xff;
  }
  element.size = isUnknown ? std::numeric_limits<std::uint64_t>::max() : size;
  element.content = at + sizeLength;
  const std::size_t room = limit - element.content;
  element.end = element.size > room ? limit : element.content + static_cast<std::size_t>(size);
  return element;
}

}  // namespace vistrelle::platform
