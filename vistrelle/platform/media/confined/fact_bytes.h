#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::platform {

/// Facts of any length one behind the other: numbers as they lie in memory, texts and bytes behind their length. Both
/// sides are the same program.
class FactWriter {
 public:
  template <typename Number>
  void number(Number value) {
    static_assert(std::is_arithmetic_v<Number>);
    append(&value, sizeof value);
  }
  void text(std::string_view text);
  void optionalText(const OptionalText& text);
  void bytes(std::span<const std::byte> bytes);
  void time(const MediaTime& time);

  std::size_t size() const { return bytes_.size(); }
  /// Forgets what was written behind the first `size` bytes.
  void cutTo(std::size_t size) { bytes_.resize(size); }
  Data take() { return std::move(bytes_); }

 private:
  void append(const void* data, std::size_t size);
  Data bytes_;
};

/// Reads them, believing nothing: once something cannot be true, isGood() is false and all that is read is empty.
class FactReader {
 public:
  explicit FactReader(std::span<const std::byte> bytes) : left_(bytes) {}

  template <typename Number>
  Number number() {
    static_assert(std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool>);
    Number value{};
    copyTo(&value, sizeof value);
    return value;
  }
  /// 0 or 1, nothing else.
  bool flag();
  /// A count of what follows, `most` at most.
  std::uint32_t count(std::uint32_t most);
  std::string text();
  OptionalText optionalText();
  Data bytes();
  MediaTime time();
  /// What was read cannot be.
  void reject();

  bool isGood() const { return isGood_; }
  /// Whether all was good and nothing is left.
  bool isComplete() const { return isGood_ && left_.empty(); }

 private:
  void copyTo(void* place, std::size_t size);
  std::span<const std::byte> part();
  std::span<const std::byte> left_;
  bool isGood_ = true;
};

}  // namespace vistrelle::platform
