#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace vistrelle::platform {

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

}  // namespace vistrelle::platform
