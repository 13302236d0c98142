#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vistrelle::platform {

/// Frees what largeMemory() gave.
struct LargeMemoryDeleter {
  std::size_t bytes = 0;  ///< 0: it came from the allocation functions
  void operator()(std::uint8_t* memory) const;
};
using LargeMemory = std::unique_ptr<std::uint8_t[], LargeMemoryDeleter>;

/// Zeroed memory for a frame or a raster, from the system at once and in large pages where there are any: a fault for
/// each small page costs more than the work on many a picture. Starts at a page; empty when memory is short: the
/// allocation functions are asked before that, so that a program that watches them learns of it.
LargeMemory largeMemory(std::size_t bytes);

}  // namespace vistrelle::platform
