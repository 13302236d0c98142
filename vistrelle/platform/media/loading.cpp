#include "vistrelle/platform/media/loading.h"

#include <system_error>
#include <thread>
#include <utility>

namespace vistrelle::platform {

void runDetached(std::function<void()> work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error&) {
    work();
  }
}

void Loading::callAll(const Completions& completions) {
  for (const std::function<void()>& completion : completions) {
    if (completion) completion();
  }
}

void Loading::request(std::function<void()> completion, std::function<void()> work) {
  Phase former;
  {
    const std::lock_guard lock(mutex_);
    former = phase_;
    if (former == Phase::notStarted) phase_ = Phase::loading;
    if (former != Phase::ended) waiting_.push_back(std::move(completion));
  }
  if (former == Phase::notStarted) runDetached(std::move(work));
  if (former == Phase::ended && completion) runDetached(std::move(completion));
}

bool Loading::begin() {
  const std::lock_guard lock(mutex_);
  if (phase_ != Phase::notStarted) return false;
  phase_ = Phase::loading;
  return true;
}

std::optional<Loading::Completions> Loading::end(const std::function<void()>& keep) {
  const std::lock_guard lock(mutex_);
  if (phase_ != Phase::loading) return std::nullopt;  // called off: who did so has told them
  phase_ = Phase::ended;
  keep();
  return std::exchange(waiting_, {});
}

void Loading::cancel(const std::function<void()>& stop) {
  Completions completions;
  {
    const std::lock_guard lock(mutex_);
    // What has been loaded goes on serving.
    if (phase_ == Phase::ended) return;
    phase_ = Phase::ended;
    stop();
    completions = std::exchange(waiting_, {});
  }
  if (!completions.empty()) runDetached([completions = std::move(completions)] { callAll(completions); });
}

}  // namespace vistrelle::platform
