#include "vistrelle/platform/base/random.h"

#include <mutex>
#include <random>

namespace vistrelle::platform {
namespace {

class SeededRandom final : public Random {
 public:
  std::int64_t next() override {
    std::lock_guard lock(mutex_);
    return static_cast<std::int64_t>(engine_() & 0x7fffffffU);
  }

 private:
  std::mutex mutex_;
  std::mt19937 engine_{std::random_device{}()};
};

std::shared_ptr<Random> makeDefaultRandom() {
  return std::make_shared<SeededRandom>();
}

}  // namespace

Seam<Random>& randomSource() {
  static auto* seam = new Seam<Random>(makeDefaultRandom);
  return *seam;
}

}  // namespace vistrelle::platform
