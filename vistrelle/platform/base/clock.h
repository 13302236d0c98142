#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// A flag that one thread sets and another waits for.
class Signal {
 public:
  explicit Signal(bool set = false) : set_(set) {}
  /// Whoever waits may destroy the signal as soon as it is set: nothing is touched after the lock.
  void set(bool value = true) {
    std::lock_guard lock(mutex_);
    set_ = value;
    changed_.notify_all();
  }
  bool isSet() const {
    std::lock_guard lock(mutex_);
    return set_;
  }
  /// Waits until the flag is set, at most `atMost` of real time; true when it is set.
  bool waitReal(std::chrono::microseconds atMost) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, atMost, [this] { return set_; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  bool set_;
};

/// Time, as a seam: a test's clock does not sleep.
class Clock {
 public:
  using WallTime = std::chrono::system_clock::time_point;
  using SteadyTime = std::chrono::steady_clock::time_point;
  virtual ~Clock() = default;
  virtual WallTime now() = 0;
  /// Monotonic time for measuring waits.
  virtual SteadyTime steady() = 0;
  virtual void sleep(std::chrono::microseconds duration) = 0;
  /// A sleep of `atMost` that ends the moment `signal` is set; true when it is set.
  virtual bool wait(const Signal& signal, std::chrono::microseconds atMost) = 0;
};

Seam<Clock>& clock();

/// A clock whose sleeps return at once and advance its own time; a wait looks at its signal once.
class FakeClock : public Clock {
 public:
  WallTime now() override { return WallTime{} + elapsed_; }
  SteadyTime steady() override { return SteadyTime{} + elapsed_; }
  void sleep(std::chrono::microseconds duration) override { elapsed_ += duration; }
  bool wait(const Signal& signal, std::chrono::microseconds atMost) override {
    if (!signal.isSet()) sleep(atMost);
    return signal.isSet();
  }
  std::chrono::microseconds elapsed() const { return elapsed_; }

 private:
  std::chrono::microseconds elapsed_{0};
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
