#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// Writes boxes (14496-12, 4.2) of big-endian numbers into memory. Every begin has its end.
class BoxWriter {
 public:
  void u8(std::uint8_t value) { bytes_.push_back(value); }
  void u16(std::uint16_t value) { number(value, 2); }
  void u32(std::uint32_t value) { number(value, 4); }
  void u64(std::uint64_t value) { number(value, 8); }
  void i16(std::int16_t value) { u16(static_cast<std::uint16_t>(value)); }
  void i32(std::int32_t value) { u32(static_cast<std::uint32_t>(value)); }
  void i64(std::int64_t value) { u64(static_cast<std::uint64_t>(value)); }
  /// 32 or 64 bits, as the version of a box decides.
  void sized(bool wide, std::uint64_t value) { number(value, wide ? 8 : 4); }
  void zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
  void bytes(std::span<const std::uint8_t> more) { bytes_.insert(bytes_.end(), more.begin(), more.end()); }

  void begin(FourCc type) {
    open_.push_back(bytes_.size());
    u32(0);
    u32(type);
  }
  void beginFull(FourCc type, std::uint8_t version = 0, std::uint32_t flags = 0) {
    begin(type);
    u32(static_cast<std::uint32_t>(version) << 24 | flags);
  }
  void end() {
    const std::size_t start = open_.back();
    open_.pop_back();
    patch(start, static_cast<std::uint32_t>(bytes_.size() - start));
  }

  std::size_t position() const { return bytes_.size(); }
  /// Replaces four bytes written before.
  void patch(std::size_t position, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) bytes_[position + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
  }
  const std::vector<std::uint8_t>& written() const { return bytes_; }
  std::vector<std::uint8_t> take() { return std::move(bytes_); }

 private:
  void number(std::uint64_t value, std::size_t count) {
    for (std::size_t i = count; i > 0; --i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * (i - 1))));
  }

  std::vector<std::uint8_t> bytes_;
  std::vector<std::size_t> open_;
};

}  // namespace vistrelle::platform::mov
