#include "vistrelle/platform/process/spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>

#include "vistrelle/platform/base/log.h"

namespace vistrelle::platform {
namespace {

constexpr int kFirstOwnDescriptor = 3;
constexpr auto kExitPause = std::chrono::milliseconds(2);

class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void redirect(int from, int to) {
    if (from >= 0 && error_ == 0) error_ = ::posix_spawn_file_actions_adddup2(&actions_, from, to);
  }
  void changeFolder(const std::string& folder) {
    if (!folder.empty() && error_ == 0) error_ = ::posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
  }
  void closeOthers() {
    if (error_ == 0) error_ = ::posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstOwnDescriptor);
  }
  int error() const { return error_; }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
  int error_ = 0;
};

/// Nothing blocked, nothing ignored: a host that ignores SIGPIPE would otherwise keep the first tool of a pipeline
/// writing for ever.
class SignalDefaults {
 public:
  SignalDefaults() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SignalDefaults() { ::posix_spawnattr_destroy(&attributes_); }
  SignalDefaults(const SignalDefaults&) = delete;
  SignalDefaults& operator=(const SignalDefaults&) = delete;
  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

/// Moves a descriptor above the standard streams, which may be free in a process started without them.
bool moveUp(UniqueFd& descriptor) {
  if (descriptor.get() >= kFirstOwnDescriptor) return true;
  descriptor = UniqueFd(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstOwnDescriptor));
  return static_cast<bool>(descriptor);
}

/// The system's interface ends every word at its first NUL: one inside would cut the word short.
bool holdsNul(const std::vector<std::string>& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [](const std::string& text) { return text.find('\0') != std::string::npos; });
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

std::optional<Pipe> makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    log("process             :-( no pipe ({})", std::error_code(errno, std::generic_category()).message());
    return std::nullopt;
  }
  Pipe pipe{UniqueFd(ends[0]), UniqueFd(ends[1])};
  if (!moveUp(pipe.reading) || !moveUp(pipe.writing)) return std::nullopt;
  return pipe;
}

std::optional<pid_t> spawn(const Command& command, const StandardStreams& streams) {
  std::vector<std::string> words{command.program};
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : command.environment) variables.push_back(name + "=" + value);

  FileActions actions;
  actions.redirect(streams.input, STDIN_FILENO);
  actions.redirect(streams.output, STDOUT_FILENO);
  actions.redirect(streams.error, STDERR_FILENO);
  actions.changeFolder(command.folder);
  actions.closeOthers();
  const SignalDefaults signals;
  pid_t process = -1;
  int error = holdsNul(words) || holdsNul(variables) ? EINVAL : actions.error();
  if (error == 0) {
    error = ::posix_spawn(&process, command.program.c_str(), actions.get(), signals.get(), pointers(words).data(),
                          pointers(variables).data());
  }
  if (error == 0) return process;
  log("process             :-( cannot be started '{}' ({})", command.program,
      std::error_code(error, std::generic_category()).message());
  return std::nullopt;
}

Child::Child(pid_t process)
    : process_(process), exit_(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<long>(process), 0L))) {}

Child::Child(Child&& other) noexcept : process_(other.process_), exit_(std::move(other.exit_)) {
  other.process_ = -1;
}

Child::~Child() {
  if (process_ < 0 || reap()) return;
  try {
    std::thread([process = process_] {
      while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
      }
    }).detach();
  } catch (const std::system_error& error) {
    log("process             :-/ {} is not waited for ({})", process_, error.what());
  }
}

/// Takes the exit status when there is one. A host that waits for every child itself may have been faster.
bool Child::reap() {
  if (process_ < 0) return true;
  pid_t result = 0;
  do {
    result = ::waitpid(process_, nullptr, WNOHANG);
  } while (result < 0 && errno == EINTR);
  if (result == 0) return false;
  process_ = -1;
  return true;
}

bool Child::waitForExit(int milliseconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  while (!reap()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (milliseconds >= 0 && left.count() <= 0) return false;
    if (exit_) {
      pollfd ended{exit_.get(), POLLIN, 0};
      ::poll(&ended, 1, milliseconds < 0 ? -1 : static_cast<int>(left.count()));
    } else {
      std::this_thread::sleep_for(kExitPause);
    }
  }
  return true;
}

}  // namespace vistrelle::platform
