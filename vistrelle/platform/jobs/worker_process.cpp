#include "vistrelle/platform/jobs/worker_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/nowhere.h"

namespace vistrelle::platform {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasShadowMemory = true;
#else
constexpr bool kHasShadowMemory = false;
#endif

constexpr int kSocket = STDERR_FILENO + 1;
constexpr int kFailure = 1;
constexpr char kLast = '!';
constexpr char kOneOfMany = ' ';

void lower(__rlimit_resource resource, std::uint64_t value) {
  rlimit limit{};
  if (::getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = std::min<rlim_t>(limit.rlim_max, value);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, limit.rlim_max);
  ::setrlimit(resource, &limit);
}

/// Standard input and output lead nowhere, the socket has a number of its own, everything else is closed.
bool keepOnly(int socket) {
  const int copy = ::fcntl(socket, F_DUPFD_CLOEXEC, kSocket + 1);
  const int nowhere = openNowhere();
  if (copy < 0 || nowhere < 0 || ::dup2(nowhere, STDIN_FILENO) < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0 ||
      ::dup3(copy, kSocket, O_CLOEXEC) < 0) {
    return false;
  }
  return ::syscall(SYS_close_range, kSocket + 1, ~0U, 0) == 0;
}

/// The signals of the terminal and of whoever ends the batch are for the process that the user sees; it ends us.
void resetSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXFSZ, SIGTSTP, SIGUSR1, SIGUSR2}) {
    ::signal(signal, SIG_IGN);
  }
  ::signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool sendAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(kSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

/// The next task; nothing when there will be none.
std::optional<std::string> nextTask(std::string* bytes) {
  std::array<char, 65536> buffer{};
  for (;;) {
    bool isSound = true;
    if (auto task = takeFramed(bytes, &isSound)) return task;
    if (!isSound) return std::nullopt;
    const ssize_t count = ::recv(kSocket, buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    bytes->append(buffer.data(), static_cast<std::size_t>(count));
  }
}

[[noreturn]] void live(const WorkerSetup& setup, std::uint64_t memoryBytes, int socket, pid_t parent) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) ::_exit(kFailure);
  ::setsid();
  resetSignals();
  if (!keepOnly(socket)) ::_exit(kFailure);
  lower(RLIMIT_CORE, 0);
  if (memoryBytes != 0 && !kHasShadowMemory) {
    lower(RLIMIT_DATA, memoryBytes);
    lower(RLIMIT_FSIZE, memoryBytes);
  }
  const TaskBody body = setup();
  std::string bytes;
  while (const auto task = nextTask(&bytes)) {
    const TaskAnswer answer = body(*task);
    if (!sendAll(framed((answer.isLast ? kLast : kOneOfMany) + answer.text)) || answer.isLast) break;
  }
  ::_exit(0);
}

}  // namespace

std::string framed(std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size());
  std::string bytes(sizeof length, '\0');
  std::memcpy(bytes.data(), &length, sizeof length);
  return bytes.append(text);
}

std::optional<std::string> takeFramed(std::string* bytes, bool* isSound) {
  std::uint32_t length = 0;
  *isSound = true;
  if (bytes->size() < sizeof length) return std::nullopt;
  std::memcpy(&length, bytes->data(), sizeof length);
  *isSound = length <= kMaxTaskBytes;
  if (!*isSound || bytes->size() - sizeof length < length) return std::nullopt;
  std::string text = bytes->substr(sizeof length, length);
  bytes->erase(0, sizeof length + length);
  return text;
}

std::optional<std::string> takeAnswer(std::string* bytes, bool* isLast, bool* isSound) {
  auto text = takeFramed(bytes, isSound);
  if (!text) return std::nullopt;
  *isSound = text->starts_with(kLast) || text->starts_with(kOneOfMany);
  if (!*isSound) return std::nullopt;
  *isLast = text->front() == kLast;
  return text->substr(1);
}

pid_t forkWorker(const WorkerSetup& setup, std::uint64_t memoryBytes, UniqueFd* socket) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return -1;
  UniqueFd ours(ends[0]);
  const UniqueFd theirs(ends[1]);
  const pid_t self = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) live(setup, memoryBytes, theirs.get(), self);
  if (child > 0) *socket = std::move(ours);
  return child;
}

std::string textOfEnd(int status) {
  if (WIFEXITED(status)) return format("status {}", WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  return format("signal {} ({})", signal, ::strsignal(signal));
}

}  // namespace vistrelle::platform
