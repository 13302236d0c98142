#include "tests/support/display.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vistrelle::testing {
namespace {

void setVariable(const std::string& name, const std::optional<std::string>& value) {
  if (value) {
    ::setenv(name.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name.c_str());
  }
}

/// The server writes its number when it is ready; nothing within a minute, or when it ends, is a failure.
std::string readNumber(int descriptor) {
  std::string number;
  pollfd ready{descriptor, POLLIN, 0};
  char byte = 0;
  while (::poll(&ready, 1, 60000) > 0 && ::read(descriptor, &byte, 1) == 1 && byte != '\n') number += byte;
  return number;
}

}  // namespace

Environment::Environment(const Variables& variables) {
  for (const auto& [name, value] : variables) {
    const char* former = ::getenv(name.c_str());
    former_[name] = former ? std::optional<std::string>(former) : std::nullopt;
    setVariable(name, value);
  }
}

Environment::~Environment() {
  for (const auto& [name, value] : former_) setVariable(name, value);
}

void leaveTerminal() {
  const int terminal = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) return;
  // The leader of a session that lets go is sent a hang-up with its group.
  const auto former = ::signal(SIGHUP, SIG_IGN);
  ::ioctl(terminal, TIOCNOTTY);
  ::signal(SIGHUP, former);
  ::close(terminal);
}

VirtualDisplay::VirtualDisplay() {
  int ends[2];
  if (::pipe(ends) != 0) return;
  server_ = ::fork();
  if (server_ == 0) {
    ::dup2(ends[1], 3);
    ::close_range(4, ~0U, 0);
    const int nowhere = ::open("/dev/null", O_RDWR);
    ::dup2(nowhere, 0);
    ::dup2(nowhere, 1);
    ::dup2(nowhere, 2);
    ::execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-noreset", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  const std::string number = readNumber(ends[0]);
  ::close(ends[0]);
  if (!number.empty()) name_ = ":" + number;
}

VirtualDisplay::~VirtualDisplay() {
  if (server_ <= 0) return;
  // Asked to end, it removes its socket and lock file; a frozen one has to wake up for that.
  ::kill(server_, SIGTERM);
  ::kill(server_, SIGCONT);
  ::waitpid(server_, nullptr, 0);
}

void VirtualDisplay::kill() {
  ::kill(server_, SIGTERM);
  ::waitpid(server_, nullptr, 0);
  server_ = -1;
}

void VirtualDisplay::freeze() {
  ::kill(server_, SIGSTOP);
}

}  // namespace vistrelle::testing
