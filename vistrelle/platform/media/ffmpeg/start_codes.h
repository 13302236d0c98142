#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vistrelle::platform {

/// Calls `visit` with the byte behind each start code (00 00 01) and what follows that up to the next one, until it
/// answers false.
template <typename Visit>
void forEachStartCode(std::span<const std::uint8_t> data, Visit visit) {
  constexpr std::size_t kPrefix = 3;
  const auto nextFrom = [data](std::size_t at) {
    while (at + kPrefix < data.size() && (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 1)) ++at;
    return at;
  };
  for (std::size_t at = nextFrom(0); at + kPrefix < data.size();) {
    const std::size_t next = nextFrom(at + kPrefix);
    const std::size_t end = next + kPrefix < data.size() ? next : data.size();
    if (!visit(data[at + kPrefix], data.subspan(at + kPrefix + 1, end - at - kPrefix - 1))) return;
    at = next;
  }
}

}  // namespace vistrelle::platform
