#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <string_view>
#include <thread>

#include "vistrelle/platform/dialogs/alert_state.h"
#include "vistrelle/platform/dialogs/helper_process.h"
#include "vistrelle/platform/dialogs/listener.h"
#include "vistrelle/platform/dialogs/wire.h"

namespace vistrelle::platform {
namespace {

using Steady = std::chrono::steady_clock;

/// A display that accepts the helper and then says nothing is as good as none.
constexpr std::chrono::seconds kShowingLimit{10};

std::string_view variable(const char* name) {
  const char* value = ::getenv(name);
  return value ? value : "";
}

/// Whether a window could be seen by somebody. The toolkit's platforms without a screen have nobody before them, unless
/// an input plug-in plays a person.
bool hasDisplay() {
  const std::string_view platform = variable("QT_QPA_PLATFORM");
  if (platform.starts_with("offscreen") || platform.starts_with("minimal")) {
    return !variable("QT_QPA_GENERIC_PLUGINS").empty();
  }
  return !platform.empty() || !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty();
}

/// Talks with the helper on a thread of its own, so that neither a slow display nor a slow person holds anybody up.
class HelperPresenter final : public AlertPresenter {
 public:
  HelperPresenter(HelperProcess helper, const AlertContent& content, std::shared_ptr<AlertState> state)
      : helper_(std::move(helper)),
        buttons_(alertButtons(content).size()),
        outgoing_(wire::encode(wire::contentToTexts(content))),
        state_(std::move(state)) {
    thread_ = startListener([this] {
      if (!converse() && !ended_) state_->lose();
    });
    if (!thread_.joinable()) state_->lose();
  }

  ~HelperPresenter() override {
    ended_ = true;
    // Wakes our thread, and tells the helper.
    ::shutdown(helper_.socket(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
  }

 private:
  /// False when the helper is of no use (any more) before an answer came.
  bool converse() {
    const auto limit = Steady::now() + kShowingLimit;
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - Steady::now()).count();
      if (!shown_ && left <= 0) return false;
      pollfd ready{helper_.socket(), POLLIN, 0};
      if (!outgoing_.empty()) ready.events |= POLLOUT;
      if (::poll(&ready, 1, shown_ ? -1 : static_cast<int>(left)) < 0 && errno != EINTR) return false;
      if (ended_) return true;
      // What has come is read before a broken connection counts.
      if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !receive()) return false;
      if ((ready.revents & POLLOUT) != 0 && !send()) return false;
      if (answered_) return true;
    }
  }

  bool send() {
    const ssize_t sent = ::send(helper_.socket(), outgoing_.data(), outgoing_.size(), MSG_NOSIGNAL);
    if (sent > 0) outgoing_.erase(0, static_cast<std::size_t>(sent));
    return sent >= 0 || errno == EAGAIN || errno == EINTR;
  }

  bool receive() {
    char buffer[4096];
    const ssize_t got = ::recv(helper_.socket(), buffer, sizeof buffer, 0);
    if (got <= 0) return got < 0 && (errno == EAGAIN || errno == EINTR);
    decoder_.add({buffer, static_cast<std::size_t>(got)});
    while (const auto message = decoder_.next()) {
      if (!take(*message)) return false;
    }
    return !decoder_.failed();
  }

  bool take(const wire::Texts& message) {
    if (message.empty()) return false;
    if (message[0] == wire::kShown) {
      shown_ = true;
      state_->show();
    } else if (message[0] == wire::kTick && message.size() == 2) {
      state_->tick(message[1] == "1");
    } else if (message[0] == wire::kAnswer && message.size() == 3) {
      std::size_t position = buttons_;
      std::from_chars(message[1].data(), message[1].data() + message[1].size(), position);
      if (position >= buttons_) return false;
      answered_ = true;
      state_->answer(position, message[2]);
    } else {
      return false;
    }
    return true;
  }

  HelperProcess helper_;
  const std::size_t buttons_;
  std::string outgoing_;
  const std::shared_ptr<AlertState> state_;
  std::atomic<bool> ended_{false};
  wire::Decoder decoder_;
  bool shown_ = false;
  bool answered_ = false;
  std::thread thread_;
};

}  // namespace

std::unique_ptr<AlertPresenter> presentByHelper(const AlertContent& content, std::shared_ptr<AlertState> state) {
  if (!hasDisplay()) return nullptr;
  const auto files = findDialogFiles();
  if (!files) return nullptr;
  auto helper = HelperProcess::start(*files);
  if (!helper) return nullptr;
  return std::make_unique<HelperPresenter>(std::move(*helper), content, std::move(state));
}

}  // namespace vistrelle::platform
