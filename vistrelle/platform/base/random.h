#pragma once

#include <cstdint>
#include <memory>

#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// Random numbers, as a seam.
class Random {
 public:
  virtual ~Random() = default;
  /// A number from 0 to 2^31 - 1, the range of the C library's random().
  virtual std::int64_t next() = 0;
};

/// The default is seeded from the operating system once a process and may be used on any thread.
Seam<Random>& randomSource();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
