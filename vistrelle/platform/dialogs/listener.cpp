#include "vistrelle/platform/dialogs/listener.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <utility>

namespace vistrelle::platform {

std::thread startListener(std::function<void()> work) {
  sigset_t all;
  sigset_t former;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &former);
  std::thread thread;
  try {
    thread = std::thread(std::move(work));
  } catch (const std::system_error&) {
    // The caller's alert goes on without a listener.
  }
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return thread;
}

}  // namespace vistrelle::platform
