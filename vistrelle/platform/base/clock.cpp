#include "vistrelle/platform/base/clock.h"

#include <thread>

namespace vistrelle::platform {
namespace {

class SystemClock final : public Clock {
 public:
  WallTime now() override { return std::chrono::system_clock::now(); }
  SteadyTime steady() override { return std::chrono::steady_clock::now(); }
  void sleep(std::chrono::microseconds duration) override { std::this_thread::sleep_for(duration); }
  bool wait(const Signal& signal, std::chrono::microseconds atMost) override { return signal.waitReal(atMost); }
};

std::shared_ptr<Clock> makeDefaultClock() {
  return std::make_shared<SystemClock>();
}

}  // namespace

Seam<Clock>& clock() {
  static auto* seam = new Seam<Clock>(makeDefaultClock);
  return *seam;
}

}  // namespace vistrelle::platform
