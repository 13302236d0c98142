#include "vistrelle/platform/files/size_signal_hold.h"

#include <time.h>

#include <cerrno>

namespace vistrelle::platform {
namespace {

sigset_t sizeSignal() {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGXFSZ);
  return set;
}

}  // namespace

SizeSignalHold::SizeSignalHold() {
  const sigset_t held = sizeSignal();
  ::pthread_sigmask(SIG_BLOCK, &held, &former_);
}

SizeSignalHold::~SizeSignalHold() {
  if (::sigismember(&former_, SIGXFSZ) == 1) return;  // whoever blocked it deals with it
  // The kernel sends it to the thread that writes, so it is this thread's to take.
  const sigset_t held = sizeSignal();
  const timespec now{};
  while (::sigtimedwait(&held, nullptr, &now) >= 0 || errno == EINTR) {
  }
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

}  // namespace vistrelle::platform
