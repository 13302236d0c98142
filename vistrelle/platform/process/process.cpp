#include "vistrelle/platform/process/process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/process/spawn.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has it declared by the program

namespace vistrelle::platform {
namespace {

// A tool whose pipe has closed is about to end; one that goes on after that is not waited for longer.
constexpr int kGraceMilliseconds = 50;
// How often the exit is looked at where the system has no descriptor for it.
constexpr int kExitLookMilliseconds = 5;
constexpr std::size_t kBlock = 65536;

/// What comes out of a pipe, up to a limit.
class Collector {
 public:
  Collector(UniqueFd pipe, std::size_t limit) : pipe_(std::move(pipe)), limit_(limit) {}

  int descriptor() const { return pipe_.get(); }
  bool open() const { return static_cast<bool>(pipe_); }
  /// The pipe's capacity while it is open.
  std::size_t capacity() const {
    const int size = ::fcntl(pipe_.get(), F_GETPIPE_SZ);
    return size > 0 ? static_cast<std::size_t>(size) : kBlock;
  }

  /// Reads once, at most `most` bytes, waiting for them; the pipe is closed at its end and beyond the limit.
  void read(std::size_t most) {
    const std::size_t before = bytes_.size();
    bytes_.resize(before + std::min(most, kBlock));
    ssize_t count = -1;
    do {
      count = ::read(pipe_.get(), bytes_.data() + before, bytes_.size() - before);
    } while (count < 0 && errno == EINTR);
    bytes_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0) {
      log("process             :-( output cannot be read ({})",
          std::error_code(errno, std::generic_category()).message());
      isLost_ = true;  // what came is a part and nobody can tell of what
    }
    if (count <= 0) pipe_.close();
    if (bytes_.size() > limit_) {
      log("process             :-( more than {} bytes of output", limit_);
      isLost_ = true;
      pipe_.close();
    }
  }

  /// Reads what the pipe holds at this moment and no more.
  void readRest() {
    int waiting = 0;
    if (!open() || ::ioctl(pipe_.get(), FIONREAD, &waiting) != 0) return;
    const std::size_t end = bytes_.size() + static_cast<std::size_t>(std::max(waiting, 0));
    while (open() && bytes_.size() < end) read(end - bytes_.size());
  }

  std::optional<std::string> take() {
    if (isLost_) return std::nullopt;
    return std::move(bytes_);
  }

 private:
  UniqueFd pipe_;
  std::size_t limit_;
  std::string bytes_;
  bool isLost_ = false;
};

class SpawningRunner : public ProcessRunner {
 public:
  explicit SpawningRunner(std::size_t largestOutput) : largestOutput_(largestOutput) {}

  ProcessOutput runPipeline(const std::vector<Command>& commands) override {
    if (commands.empty()) return {};
    std::vector<Child> children;
    UniqueFd previous;
    for (const Command& command : commands) {
      const bool last = &command == &commands.back();
      auto pipe = makePipe();
      if (!pipe) return {};
      const int output = pipe->writing.get();
      const auto process = spawn(command, {previous.get(), output, last ? output : -1});
      if (!process) return {};
      children.emplace_back(*process);
      previous = std::move(pipe->reading);
    }
    Collector collector(std::move(previous), largestOutput_);
    ProcessOutput result{std::nullopt, collector.capacity()};
    while (collector.open()) collector.read(kBlock);
    for (Child& child : children) child.waitForExit(kGraceMilliseconds);
    result.bytes = collector.take();
    return result;
  }

  ProcessOutput run(const Command& command) override {
    auto pipe = makePipe();
    if (!pipe) return {};
    const auto process = spawn(command, {-1, pipe->writing.get(), -1});
    if (!process) return {};
    Child child(*process);
    pipe->writing.close();
    Collector collector(std::move(pipe->reading), largestOutput_);
    ProcessOutput result{std::nullopt, collector.capacity()};
    while (collector.open() && !child.waitForExit(0)) readWhenReady(collector, child);
    child.waitForExit(-1);
    collector.readRest();
    result.bytes = collector.take();
    return result;
  }

  bool launch(const Command& command) override {
    const auto process = spawn(command, {});
    if (!process) return false;
    // Its end leaves a child that still runs to a thread.
    const Child child(*process);
    return true;
  }

 private:
  static void readWhenReady(Collector& collector, const Child& child) {
    pollfd events[] = {{collector.descriptor(), POLLIN, 0}, {child.exitDescriptor(), POLLIN, 0}};
    const int timeout = child.exitDescriptor() < 0 ? kExitLookMilliseconds : -1;
    if (::poll(events, 2, timeout) > 0 && events[0].revents != 0) collector.read(kBlock);
  }

  std::size_t largestOutput_;
};

}  // namespace

Environment currentEnvironment() {
  Environment result;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text(*entry);
    const auto equals = text.find('=');
    // The first of two equal names is the one that getenv finds.
    if (equals != std::string_view::npos) result.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return result;
}

std::shared_ptr<ProcessRunner> spawningProcessRunner(std::size_t largestOutput) {
  return std::make_shared<SpawningRunner>(largestOutput);
}

Seam<ProcessRunner>& processRunner() {
  static Seam<ProcessRunner> seam([] { return spawningProcessRunner(); });
  return seam;
}

}  // namespace vistrelle::platform
