#include "vistrelle/platform/dialogs/helper_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace vistrelle::platform {
namespace {

/// The helper's end of the socket in the helper.
constexpr int kHelperSocket = 3;
constexpr int kEndMilliseconds = 1000;

class SpawnActions {
 public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
 public:
  SpawnAttributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t set;
    ::sigemptyset(&set);
    ::posix_spawnattr_setsigmask(&attributes_, &set);
    ::sigfillset(&set);
    ::posix_spawnattr_setsigdefault(&attributes_, &set);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

pid_t spawn(const DialogFiles& files, int socket) {
  SpawnActions actions;
  // dup2 onto itself clears the close-on-exec mark, too.
  ::posix_spawn_file_actions_adddup2(actions.get(), socket, kHelperSocket);
  ::posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  // The toolkit's own remarks do not belong between lines that a calling program reads.
  if (!::getenv("VISTRELLE_DIALOGS_DEBUG")) {
    ::posix_spawn_file_actions_addopen(actions.get(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ::posix_spawn_file_actions_addclosefrom_np(actions.get(), kHelperSocket + 1);
  SpawnAttributes attributes;
  std::string helper = files.helper;
  std::string plugin = files.plugin;
  char* arguments[] = {helper.data(), plugin.data(), nullptr};
  pid_t process = -1;
  if (::posix_spawn(&process, helper.c_str(), actions.get(), attributes.get(), arguments, environ) != 0) return -1;
  return process;
}

/// Whether the process has ended within the time (or is not ours to wait for: the host collects its children).
bool endsWithin(pid_t process, int milliseconds) {
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (descriptor < 0) return errno == ESRCH;
  pollfd ended{descriptor, POLLIN, 0};
  int result = 0;
  do {
    result = ::poll(&ended, 1, milliseconds);
  } while (result < 0 && errno == EINTR);
  ::close(descriptor);
  return result > 0;
}

}  // namespace

std::optional<HelperProcess> HelperProcess::start(const DialogFiles& files) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return std::nullopt;
  ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  const pid_t process = spawn(files, ends[1]);
  ::close(ends[1]);
  if (process > 0) return HelperProcess(process, ends[0]);
  ::close(ends[0]);
  return std::nullopt;
}

HelperProcess::HelperProcess(HelperProcess&& other) noexcept
    : process_(std::exchange(other.process_, -1)), socket_(std::exchange(other.socket_, -1)) {}

HelperProcess::~HelperProcess() {
  if (socket_ >= 0) ::close(socket_);
  if (process_ <= 0) return;
  if (!endsWithin(process_, kEndMilliseconds)) ::kill(process_, SIGKILL);
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace vistrelle::platform
