#pragma once

#include <signal.h>

namespace vistrelle::platform {

/// While one of these lives, a write of this thread beyond the limit of file sizes (RLIMIT_FSIZE) fails with EFBIG and
/// sends no SIGXFSZ, which would end a host in the middle of a file.
class SizeSignalHold {
 public:
  SizeSignalHold();
  ~SizeSignalHold();
  SizeSignalHold(const SizeSignalHold&) = delete;
  SizeSignalHold& operator=(const SizeSignalHold&) = delete;

 private:
  sigset_t former_{};
};

}  // namespace vistrelle::platform
