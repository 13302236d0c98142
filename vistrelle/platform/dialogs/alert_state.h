#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/dialogs/alert_content.h"

namespace vistrelle::platform {

/// What is known of a shown alert, between the thread that listens to the person and the main thread.
class AlertState {
 public:
  struct Answer {
    std::size_t position;
    /// The text of the field, where there is one.
    std::string field;
  };

  /// The first answer stands.
  void answer(std::size_t position, std::string field) {
    {
      std::lock_guard lock(mutex_);
      if (!answer_) answer_ = Answer{position, std::move(field)};
    }
    answered_.set();
    changed_.set();
  }
  void tick(bool ticked) {
    std::lock_guard lock(mutex_);
    ticked_ = ticked;
  }
  /// The alert is before the person's eyes.
  void show() { shown_ = true; }
  bool shown() const { return shown_; }
  /// Nobody can be asked on this road (any more).
  void lose() {
    // Both in one step: a waiter that takes the loss must not find the signal set again afterwards.
    std::lock_guard lock(mutex_);
    lost_ = true;
    changed_.set();
  }

  std::optional<Answer> answer() const {
    std::lock_guard lock(mutex_);
    return answer_;
  }
  bool ticked() const {
    std::lock_guard lock(mutex_);
    return ticked_;
  }
  /// Whether the road was lost since the last call; waiters wait again afterwards.
  bool takeLoss() {
    std::lock_guard lock(mutex_);
    if (!lost_) return false;
    lost_ = false;
    if (!answer_) changed_.set(false);
    return true;
  }
  /// Set by an answer. A loss leaves it, so that it shortens nobody's give-up time.
  const Signal& answered() const { return answered_; }
  /// Set by an answer and by a loss.
  const Signal& changed() const { return changed_; }

 private:
  mutable std::mutex mutex_;
  std::optional<Answer> answer_;
  std::atomic<bool> shown_{false};
  bool ticked_ = false;
  bool lost_ = false;
  Signal answered_;
  Signal changed_;
};

/// One way of putting an alert before a person; what it shows goes with the object.
class AlertPresenter {
 public:
  virtual ~AlertPresenter() = default;
};

/// An alert shown as a window by a helper process; empty where that is not to be tried (no display, not installed).
std::unique_ptr<AlertPresenter> presentByHelper(const AlertContent& content, std::shared_ptr<AlertState> state);

/// An alert shown as text: on standard error, and on the terminal where standard error goes elsewhere. Answers come
/// from the terminal while this process belongs to its foreground group; the state is lost while nobody can answer.
std::unique_ptr<AlertPresenter> presentOnTerminal(const AlertContent& content, std::shared_ptr<AlertState> state);

}  // namespace vistrelle::platform
