#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"
#include "vistrelle/platform/media/mov/movie_header.h"

/// A movie that lies in memory; every read gets at most `most` bytes.
class MemoryBytes : public vistrelle::platform::InputBytes {
 public:
  explicit MemoryBytes(std::span<const std::uint8_t> bytes, std::size_t most = SIZE_MAX)
      : bytes_(bytes.begin(), bytes.end()), most_(most) {}
  std::int64_t size() const override { return std::ssize(bytes_); }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    if (offset < 0 || offset >= size()) return 0;
    const std::size_t count = std::min({buffer.size(), most_, bytes_.size() - static_cast<std::size_t>(offset)});
    std::memcpy(buffer.data(), bytes_.data() + offset, count);
    return static_cast<std::int64_t>(count);
  }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t most_;
};

/// Limits under which one input costs little.
inline vistrelle::platform::MediaLimits smallLimits() {
  vistrelle::platform::MediaLimits limits;
  limits.maxAllocation = std::size_t{64} << 20;
  limits.maxPixels = std::int64_t{1} << 18;
  limits.maxStreams = 16;
  limits.probeBytes = std::int64_t{1} << 20;
  limits.analyzeMicroseconds = 1'000'000;
  limits.opening = std::chrono::seconds(5);
  return limits;
}

/// The movie, loaded.
inline std::shared_ptr<vistrelle::platform::UrlAsset> openMovie(std::span<const std::uint8_t> bytes,
                                                                std::size_t most = SIZE_MAX) {
  auto movie = std::make_shared<vistrelle::platform::UrlAsset>(std::make_shared<MemoryBytes>(bytes, most), "memory",
                                                               smallLimits());
  movie->loadNow();
  return movie;
}

/// Reads of the same bytes for the readers of headers.
inline vistrelle::platform::mov::ReadAt readsOf(const std::shared_ptr<MemoryBytes>& bytes) {
  return [bytes](std::int64_t offset, std::span<std::uint8_t> buffer) { return bytes->readAt(offset, buffer); };
}
