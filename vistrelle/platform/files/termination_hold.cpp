#include "vistrelle/platform/files/termination_hold.h"

#include <signal.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

namespace vistrelle::platform {
namespace {

constexpr std::array<int, 3> kSignals{SIGINT, SIGTERM, SIGHUP};

std::array<std::atomic<bool>, kSignals.size()> arrived{};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void rememberSignal(int number) {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    if (kSignals[i] == number) arrived[i] = true;
  }
}

std::mutex& holdMutex() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

int holds = 0;
std::array<bool, kSignals.size()> replaced{};

void install(std::size_t i) {
  struct sigaction former {};
  ::sigaction(kSignals[i], nullptr, &former);
  replaced[i] = (former.sa_flags & SA_SIGINFO) == 0 && former.sa_handler == SIG_DFL;
  if (!replaced[i]) return;
  struct sigaction remember {};
  remember.sa_handler = rememberSignal;
  remember.sa_flags = SA_RESTART;
  ::sigaction(kSignals[i], &remember, nullptr);
}

void restore(std::size_t i) {
  if (!replaced[i]) return;
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  ::sigaction(kSignals[i], &standard, nullptr);
  if (arrived[i].exchange(false)) ::raise(kSignals[i]);
}

}  // namespace

TerminationHold::TerminationHold() {
  const std::lock_guard lock(holdMutex());
  if (holds++ > 0) return;
  for (std::size_t i = 0; i < kSignals.size(); ++i) install(i);
}

TerminationHold::~TerminationHold() {
  const std::lock_guard lock(holdMutex());
  if (--holds > 0) return;
  for (std::size_t i = 0; i < kSignals.size(); ++i) restore(i);
}

}  // namespace vistrelle::platform
