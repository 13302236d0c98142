#include "tests/support/terminal_run.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

namespace vistrelle::testing {
namespace {

constexpr std::chrono::seconds kLimit{60};

[[noreturn]] void runAction(const std::function<std::string()>& action, int answers, bool errorsToTerminal) {
  if (!errorsToTerminal) ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
  const std::string result = action() + "\n";
  (void)!::write(answers, result.data(), result.size());
  ::_exit(0);
}

}  // namespace

TerminalRun::TerminalRun(const std::function<std::string()>& action, Group group, bool errorsToTerminal) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
  if (child_ == 0) {
    if (group == Group::Foreground) runAction(action, ends[1], errorsToTerminal);
    const pid_t job = ::fork();
    if (job == 0) {
      ::setpgid(0, 0);
      runAction(action, ends[1], errorsToTerminal);
    }
    ::waitpid(job, nullptr, WUNTRACED);
    ::_exit(0);
  }
  ::close(ends[1]);
  answers_ = ends[0];
}

TerminalRun::~TerminalRun() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  ::close(terminal_);
  ::close(answers_);
}

void TerminalRun::type(const std::string& keys) const {
  (void)!::write(terminal_, keys.data(), keys.size());
}

bool TerminalRun::readScreen(int milliseconds) {
  pollfd ready{terminal_, POLLIN, 0};
  if (::poll(&ready, 1, milliseconds) <= 0) return true;
  char buffer[4096];
  const ssize_t got = ::read(terminal_, buffer, sizeof buffer);
  if (got > 0) screen_.append(buffer, static_cast<std::size_t>(got));
  return got > 0;
}

bool TerminalRun::shows(const std::string& text) {
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (screen_.find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > limit || !readScreen(100)) return false;
  }
  return true;
}

std::string TerminalRun::result(double seconds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  pollfd ready{answers_, POLLIN, 0};
  while (::poll(&ready, 1, 20) == 0) {
    if (std::chrono::steady_clock::now() > limit) return "(nothing)";
    readScreen(0);
  }
  char buffer[256];
  const ssize_t got = ::read(answers_, buffer, sizeof buffer);
  return got > 0 ? std::string(buffer, static_cast<std::size_t>(got) - 1) : "(nothing)";
}

bool TerminalRun::isInLineMode() const {
  termios mode{};
  return ::tcgetattr(terminal_, &mode) == 0 && (mode.c_lflag & ICANON) != 0;
}

bool TerminalRun::takesKeys() const {
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (isInLineMode()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    ::usleep(5000);
  }
  return true;
}

}  // namespace vistrelle::testing
