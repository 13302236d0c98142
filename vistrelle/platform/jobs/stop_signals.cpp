#include "vistrelle/platform/jobs/stop_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace vistrelle::platform {

StopSignals::StopSignals() {
  sigset_t watched;
  ::sigemptyset(&watched);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction action {};
    // A blocked signal is kept although it is ignored, and would be read.
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) ::sigaddset(&watched, signal);
  }
  ::sigprocmask(SIG_BLOCK, &watched, &former_);
  descriptor_ = UniqueFd(::signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
}

StopSignals::~StopSignals() {
  while (take() != 0) {
  }
  ::sigprocmask(SIG_SETMASK, &former_, nullptr);
}

int StopSignals::take() const {
  signalfd_siginfo info{};
  return ::read(descriptor_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

}  // namespace vistrelle::platform
