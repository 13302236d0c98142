#pragma once

namespace vistrelle::platform {

/// While one of these lives, SIGINT, SIGTERM and SIGHUP wait: a file that is being written is finished first. Held back
/// on every thread, because a signal to the process ends it on whichever thread is open to it. Signals that the host
/// handles or ignores itself are left alone. The signal that came in takes effect when the last hold ends.
class TerminationHold {
 public:
  TerminationHold();
  ~TerminationHold();
  TerminationHold(const TerminationHold&) = delete;
  TerminationHold& operator=(const TerminationHold&) = delete;
};

}  // namespace vistrelle::platform
