#pragma once

#include <signal.h>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// SIGHUP, SIGINT and SIGTERM as something to read, from the making of this object on; one that the process was started
/// to ignore stays ignored. For a process of one thread. The former mask comes back at the end.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Becomes readable when one has come.
  int descriptor() const { return descriptor_.get(); }
  /// One that has come; 0 when none has.
  int take() const;

 private:
  sigset_t former_{};
  UniqueFd descriptor_;
};

}  // namespace vistrelle::platform
