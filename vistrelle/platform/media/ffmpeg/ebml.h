#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vistrelle::platform {

/// RFC 8794: an element's identifier with its length marker, and where its content lies; an unknown size reaches to
/// the end of what encloses it, and so does one that is larger.
struct EbmlElement {
  std::uint32_t id = 0;
  std::size_t content = 0;
  std::size_t end = 0;
  std::uint64_t size = 0;  ///< as stated; the largest number when unknown
};

/// The element at `at` in `bytes`, of which `limit` count; nothing at the end and in damaged data.
std::optional<EbmlElement> ebmlElementAt(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t limit);

}  // namespace vistrelle::platform
