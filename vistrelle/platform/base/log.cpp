#include "vistrelle/platform/base/log.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <string>
#include <variant>
#include <vector>

#include "vistrelle/platform/base/visible_text.h"

namespace vistrelle::platform {
namespace {

constexpr const char* kLoggerSocket = "/dev/log";

/// Writes all of `text`, giving up at the first error that is not an interruption. A reader that set the
/// descriptor non-blocking and is slow is waited for a second at most.
void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      pollfd ready{descriptor, POLLOUT, 0};
      if (::poll(&ready, 1, 1000) > 0) continue;
    }
    return;
  }
}

std::string localTime() {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  return format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                local.tm_hour, local.tm_min, local.tm_sec, now.tv_usec / 1000);
}

class StandardErrorSink final : public LogSink {
 public:
  StandardErrorSink() { openLogger(); }
  ~StandardErrorSink() override {
    if (logger_ >= 0) ::close(logger_);
  }

  void message(std::string_view text) override {
    const std::string id = format("[{}:{}]", static_cast<int>(::getpid()), static_cast<int>(::gettid()));
    const std::string program = program_invocation_short_name;  // whoever starts a program may name it anything
    std::string line = localTime();
    line.append(" ").append(showsToTerminal() ? visibleText(program) : program).append(id);
    line.append(" ").append(text).append("\n");
    writeAll(STDERR_FILENO, line);
    toLogger(program + id, text);
  }

  void plain(std::string_view text) override { writeAll(STDERR_FILENO, text); }
  bool showsToTerminal() const override { return ::isatty(STDERR_FILENO) == 1; }

 private:
  void openLogger() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kLoggerSocket, sizeof address.sun_path - 1);
    if (::access(kLoggerSocket, W_OK) != 0) return;
    logger_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (logger_ < 0) return;
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(logger_, generic, sizeof address) == 0) return;
    ::close(logger_);
    logger_ = -1;
  }

  // RFC 3164: facility user (1), severity notice (5). A logger that is slow or gone loses the copy, not the run.
  void toLogger(const std::string& who, std::string_view text) const {
    if (logger_ < 0) return;
    std::string datagram = "<13>" + who + ": ";
    datagram.append(text);
    (void)::send(logger_, datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  }

  int logger_ = -1;
};

std::shared_ptr<LogSink> makeDefaultSink() {
  return std::make_shared<StandardErrorSink>();
}

}  // namespace

std::string textFor(const LogSink& sink, FormatLiteral literal, std::initializer_list<FormatArgument> arguments) {
  if (!sink.showsToTerminal()) return formatText(literal, std::span(arguments.begin(), arguments.size()));
  std::deque<std::string> visible;  // its elements stay where they are
  std::vector<FormatArgument> shown;
  for (const FormatArgument& argument : arguments) {
    const auto* text = std::get_if<std::string_view>(&argument.stored());
    shown.push_back(text == nullptr ? argument : FormatArgument(visible.emplace_back(visibleText(*text))));
  }
  return formatText(literal, shown);
}

Seam<LogSink>& logSink() {
  // Never destroyed: threads may still log while the process ends.
  static auto* seam = new Seam<LogSink>(makeDefaultSink);
  return *seam;
}

}  // namespace vistrelle::platform
