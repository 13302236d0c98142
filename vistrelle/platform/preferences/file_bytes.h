#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vistrelle::platform {

/// A descriptor that is closed at the end; -1 for none. Opened files are never passed on to child processes.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  int release() {
    const int number = number_;
    number_ = -1;
    return number;
  }
  void reset(int number = -1);

 private:
  int number_;
};

struct FileReading {
  /// The whole content; absent when it cannot be read or is longer than allowed, `error` then says why.
  std::optional<std::string> bytes;
  std::string error;
  /// The errno value of a failed open or read, else 0.
  int number = 0;
};

/// Reads a regular file. Something else (a FIFO, a terminal) is refused without waiting for it.
FileReading readWholeFile(const std::string& path, std::size_t mostBytes);
FileReading readWholeFile(int descriptor, std::size_t mostBytes);

/// Creates or replaces the file at `path`: a temporary beside it is written, flushed to the disk and renamed, so that
/// at any moment the path names the old content or the new. A symbolic link is followed and stays; permissions (and,
/// where allowed, owner) of a replaced file are kept, a new file gets `newMode` as it is. Returns what went wrong, or
/// an empty text; after a failure no temporary remains.
std::string replaceFile(const std::string& path, std::string_view bytes, mode_t newMode);

}  // namespace vistrelle::platform
