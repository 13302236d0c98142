#include "vistrelle/platform/dialogs/terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

namespace vistrelle::platform {
namespace {

/// Blocks the signals that stop a background process which touches its terminal: the call fails instead.
class StopSignalsBlocked {
 public:
  StopSignalsBlocked() {
    sigset_t stops;
    ::sigemptyset(&stops);
    ::sigaddset(&stops, SIGTTIN);
    ::sigaddset(&stops, SIGTTOU);
    ::pthread_sigmask(SIG_BLOCK, &stops, &former_);
  }
  ~StopSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  StopSignalsBlocked(const StopSignalsBlocked&) = delete;
  StopSignalsBlocked& operator=(const StopSignalsBlocked&) = delete;

 private:
  sigset_t former_{};
};

}  // namespace

struct Terminal::Mode {
  termios settings;
};

Terminal::Terminal() : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {}

Terminal::~Terminal() {
  if (former_) {
    const StopSignalsBlocked blocked;
    if (isForeground()) ::tcsetattr(descriptor_, TCSANOW, &former_->settings);
    delete former_;
  }
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool Terminal::isForeground() const {
  return descriptor_ >= 0 && ::tcgetpgrp(descriptor_) == ::getpgrp();
}

void Terminal::readKeys() {
  if (former_) return;
  const StopSignalsBlocked blocked;
  Mode mode{};
  if (::tcgetattr(descriptor_, &mode.settings) != 0) return;
  termios keys = mode.settings;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON);
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  if (::tcsetattr(descriptor_, TCSANOW, &keys) == 0) former_ = new Mode(mode);
}

std::optional<int> Terminal::readByte() {
  const StopSignalsBlocked blocked;
  if (!isForeground()) return std::nullopt;
  unsigned char byte = 0;
  const ssize_t got = ::read(descriptor_, &byte, 1);
  if (got == 1) return byte;
  if (got == 0) return -1;
  // A terminal that is gone says EIO; so does one whose foreground was just given to another group.
  if (errno == EIO && isForeground()) return -1;
  return std::nullopt;
}

bool Terminal::waitReadable(std::chrono::milliseconds atMost) const {
  pollfd ready{descriptor_, POLLIN, 0};
  return ::poll(&ready, 1, static_cast<int>(atMost.count())) > 0;
}

void Terminal::write(std::string_view text) const {
  const StopSignalsBlocked blocked;
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor_, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    pollfd ready{descriptor_, POLLOUT, 0};
    // A terminal that takes nothing for a second (its output stopped by the user) loses the rest.
    if (written < 0 && errno == EAGAIN && ::poll(&ready, 1, 1000) > 0) continue;
    return;
  }
}

}  // namespace vistrelle::platform
