#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/log.h"

/// Log lines go nowhere: a fuzzer's own output is to be seen.
inline void silenceLog() {
  class Nowhere : public vistrelle::platform::LogSink {
   public:
    void message(std::string_view /*text*/) override {}
    void plain(std::string_view /*text*/) override {}
  };
  vistrelle::platform::logSink().install(std::make_shared<Nowhere>());
}

/// Ends the process, which is a find, and names the line.
inline void require(bool condition, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (condition) return;
  std::fprintf(stderr, "%s:%d does not hold\n", file, line);
  std::abort();
}

/// An input read piece by piece: what a target asks for besides its main matter. Past the end it delivers zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {}

  std::size_t remaining() const { return bytes_.size(); }
  /// A whole number, a floating-point number, or any other trivial value, bit for bit.
  template <typename Number>
  Number take() {
    Number number{};
    const std::size_t count = std::min(sizeof number, bytes_.size());
    std::memcpy(&number, bytes_.data(), count);
    bytes_ = bytes_.subspan(count);
    return number;
  }
  std::string_view text(std::size_t count) {
    count = std::min(count, bytes_.size());
    const std::string_view piece(reinterpret_cast<const char*>(bytes_.data()), count);
    bytes_ = bytes_.subspan(count);
    return piece;
  }
  std::string_view rest() { return text(bytes_.size()); }

 private:
  std::span<const std::uint8_t> bytes_;
};

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}
