#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// The elements directly in the segment of a Matroska file (RFC 9559, 5.1): those before the first cluster and those
/// that the file's indexes of elements name. A thousand of each at most.
class MatroskaElements {
 public:
  /// `readAt` must outlive it.
  MatroskaElements(std::int64_t size, const mov::ReadAt& readAt) : size_(size), readAt_(readAt) {}

  /// The contents of all elements of this kind, in the order in which they were found, `mostBytes` in all.
  std::vector<std::vector<std::uint8_t>> contentsOf(std::uint32_t id, std::int64_t mostBytes) const;

 private:
  /// Where its content begins, and its stated size cut to the file.
  struct FileElement {
    std::uint32_t id = 0;
    std::int64_t content = 0;
    std::int64_t end = 0;
  };
  using Bytes = std::vector<std::uint8_t>;

  Bytes bytesAt(std::int64_t offset, std::int64_t length) const;
  std::optional<FileElement> elementAt(std::int64_t offset) const;
  std::optional<std::int64_t> segmentStart() const;
  static void notePlaces(const Bytes& index, std::uint32_t id, std::int64_t segment, std::vector<std::int64_t>* places);

  std::int64_t size_;
  const mov::ReadAt& readAt_;
};

}  // namespace vistrelle::platform
