#include "vistrelle/system/alert_session.h"

#include <chrono>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/clock.h"

namespace vistrelle {
namespace {

using std::chrono::microseconds;

constexpr microseconds kPass{100000};
constexpr float kPassSeconds = 0.1F;
constexpr microseconds kSecond{1000000};

/// A session and its window end together, whatever happens between.
class RunningSession {
 public:
  explicit RunningSession(platform::AlertDialog& alert) : alert_(alert) { alert_.beginModalSession(); }
  ~RunningSession() {
    alert_.closeWindow();
    alert_.endModalSession();
  }
  RunningSession(const RunningSession&) = delete;
  RunningSession& operator=(const RunningSession&) = delete;

 private:
  platform::AlertDialog& alert_;
};

void layOut(platform::AlertDialog& alert) {
  if (alert.answersLayout()) {
    alert.layout();
  } else if (alert.answersPrepare()) {
    alert.prepare();
  }
}

/// By position, never by caption: the last of two and the third of three abort, the middle one of three has a code.
void wireButtons(platform::AlertDialog& alert) {
  const std::size_t count = alert.buttons().size();
  if (count >= 1) alert.setButtonAction(0, platform::ButtonAction::StopModal);
  if (count >= 2) alert.setButtonAction(count >= 3 ? 2 : 1, platform::ButtonAction::AbortModal);
  if (count >= 3) alert.setButtonAction(1, platform::ButtonAction::StopModalWithCode);
}

}  // namespace

SessionEnd runAlertSession(platform::AlertDialog& alert, std::int64_t seconds) {
  layOut(alert);
  wireButtons(alert);
  const auto clock = platform::clock().get();
  const RunningSession session(alert);
  const auto limit = static_cast<float>(seconds);
  float elapsed = 0;
  while (limit > elapsed) {
    const platform::ModalResponse response = alert.runModalSession();
    if (response != platform::kModalContinue) return {false, response};
    clock->wait(alert.answered(), kPass);
    elapsed += kPassSeconds;
  }
  return {};
}

void holdSheet(std::int64_t seconds) {
  const auto clock = platform::clock().get();
  platform::Clock::SteadyTime stamp{};
  for (std::int64_t i = 0; i <= seconds; ++i) {
    if (i > 0) {
      const auto passed = std::chrono::duration_cast<microseconds>(clock->steady() - stamp);
      if (passed < kSecond) clock->sleep(kSecond - passed);
    }
    clock->sleep(kSecond);
    log("i = {}", i);
    stamp = clock->steady();
  }
}

}  // namespace vistrelle
