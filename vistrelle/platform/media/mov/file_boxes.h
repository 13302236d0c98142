#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// A box at the top level of a file: where its content lies.
struct FileBox {
  FourCc type = 0;
  std::int64_t start = 0;
  std::int64_t content = 0;
  std::int64_t end = 0;
};

/// Walks the boxes at the top level of a file (14496-12, 4.2), a million of them at most. A box that reaches beyond the
/// end is cut to it.
class FileBoxes {
 public:
  /// `limit`: bytes that may be loaded in all.
  FileBoxes(std::int64_t size, const ReadAt& readAt, std::int64_t limit) : size_(size), readAt_(readAt), left_(limit) {}
  /// Nothing at the end and after an error.
  std::optional<FileBox> next();
  /// The content; nothing when it cannot be read or is beyond the limit.
  std::optional<std::vector<std::uint8_t>> load(const FileBox& box);
  /// Whether the file could not be read or more was to be loaded than may be. A file that is shorter than it said it
  /// was is no failure: it ends there.
  bool hasFailed() const { return failed_; }

 private:
  bool readFully(std::int64_t offset, std::span<std::uint8_t> buffer);

  std::int64_t size_;
  const ReadAt& readAt_;
  std::int64_t left_;
  std::int64_t offset_ = 0;
  int boxesLeft_ = 1 << 20;
  bool failed_ = false;
};

}  // namespace vistrelle::platform::mov
