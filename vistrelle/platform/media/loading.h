#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace vistrelle::platform {

/// Runs `work` on a thread that nobody waits for: it may be stalled in a read for ever. Where no thread can be made it
/// runs at once.
void runDetached(std::function<void()> work);

/// One loading of an asset: whom it tells, each once. Shared by the asset and the thread that loads; all calls may
/// come from any thread.
class Loading {
 public:
  using Completions = std::vector<std::function<void()>>;

  /// `completion` is called on another thread when the loading ends, at once when it has ended. The first request runs
  /// `work` on a thread of its own.
  void request(std::function<void()> completion, std::function<void()> work);
  /// Takes the work on; false when somebody has done so.
  bool begin();
  /// The work is done: runs `keep` under the lock and gives those who wait, for callAll(). Nothing, and `keep` is not
  /// run, when it was called off.
  std::optional<Completions> end(const std::function<void()>& keep);
  /// Calls it off: runs `stop` under the lock and tells those who wait. Nothing happens when it has ended.
  void cancel(const std::function<void()>& stop);
  static void callAll(const Completions& completions);

  /// Guards what `keep` changes.
  std::mutex& mutex() const { return mutex_; }

 private:
  enum class Phase { notStarted, loading, ended };

  mutable std::mutex mutex_;
  Phase phase_ = Phase::notStarted;
  Completions waiting_;  // each is taken out once, by whoever calls it
};

}  // namespace vistrelle::platform
