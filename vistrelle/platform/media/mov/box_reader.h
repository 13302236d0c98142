#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// Reads big-endian numbers from a piece of memory. Past the end it delivers zeros and remembers it.
class Cursor {
 public:
  explicit Cursor(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::size_t remaining() const { return bytes_.size() - position_; }
  /// Whether everything asked for so far was there.
  bool isGood() const { return good_; }
  void skip(std::size_t count) {
    if (take(count)) position_ += count;
  }
  std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t u64() { return number(8); }
  std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
  std::int64_t i64() { return static_cast<std::int64_t>(u64()); }
  /// 32 or 64 bits, as the version of a box decides.
  std::uint64_t sized(bool wide) { return wide ? u64() : u32(); }
  std::span<const std::uint8_t> bytes(std::size_t count) {
    if (!take(count)) return {};
    position_ += count;
    return bytes_.subspan(position_ - count, count);
  }

 private:
  bool take(std::size_t count) {
    if (count <= remaining()) return true;
    good_ = false;
    position_ = bytes_.size();
    return false;
  }
  std::uint64_t number(std::size_t count) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes(count)) value = value << 8 | byte;
    return value;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  bool good_ = true;
};

/// One box in memory (14496-12, 4.2); `content` is what follows its header.
struct Box {
  FourCc type = 0;
  std::span<const std::uint8_t> content;
};

/// The boxes that lie one after the other in a piece of memory. A box that reaches beyond it is cut to it, a size
/// below that of its header ends the walk.
class BoxList {
 public:
  explicit BoxList(std::span<const std::uint8_t> bytes) : cursor_(bytes) {}
  /// Nothing at the end.
  std::optional<Box> next();

 private:
  Cursor cursor_;
};

/// The first box of a type; nothing when there is none.
std::optional<Box> findBox(std::span<const std::uint8_t> bytes, FourCc type);

/// A full box's version and flags (14496-12, 4.2), read from the start of its content.
struct FullBoxHeader {
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
};
FullBoxHeader readFullBoxHeader(Cursor& cursor);

}  // namespace vistrelle::platform::mov
