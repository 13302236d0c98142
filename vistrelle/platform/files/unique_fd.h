#pragma once

#include <unistd.h>

#include <utility>

namespace vistrelle::platform {

/// Owns a file descriptor; -1 is none.
class UniqueFd {
 public:
  explicit UniqueFd(int descriptor = -1) : descriptor_(descriptor) {}
  UniqueFd(UniqueFd&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      close();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { close(); }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  /// What close(2) answered: a file system may report a failed write only here. 0 when there was nothing to close.
  int close() { return descriptor_ < 0 ? 0 : ::close(std::exchange(descriptor_, -1)); }

 private:
  int descriptor_;
};

}  // namespace vistrelle::platform
