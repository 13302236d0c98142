#include "vistrelle/platform/media/confined/nursery.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/nowhere.h"
#include "vistrelle/platform/media/confined/refused_memory.h"

namespace vistrelle::platform {
namespace {

enum Request : std::uint32_t { kNone, kMake, kEnd, kMade, kEnded };

struct ProcessNumber {
  std::int32_t value = -1;
};
struct ProcessEnd {
  std::int32_t process = -1;
  std::int32_t isKnown = 0;
  std::int32_t status = 0;  ///< as waitpid gives it
};

constexpr int kEndMilliseconds = 2000;

int threadCount() {
  DIR* folder = ::opendir("/proc/self/task");
  if (folder == nullptr) return 1;  // cannot be told: the caller's word is taken
  int count = 0;
  while (const dirent* entry = ::readdir(folder)) count += entry->d_name[0] != '.' ? 1 : 0;
  ::closedir(folder);
  return count;
}

#if defined(__SANITIZE_THREAD__)
constexpr int kThreadsOfTheRuntime = 1;
#else
constexpr int kThreadsOfTheRuntime = 0;
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kKeepsStandardError = true;  // for the sanitizer's report
#else
constexpr bool kKeepsStandardError = false;
#endif

constexpr int kFirstFree = STDERR_FILENO + 1;

void closeFrom(int first) {
  if (::syscall(SYS_close_range, first, ~0U, 0) == 0) return;
  const long most = ::sysconf(_SC_OPEN_MAX);
  for (int descriptor = first; descriptor < most; ++descriptor) ::close(descriptor);
}

/// Leaves nothing open but `kept`, which gets the lowest number, and three descriptors that lead nowhere. Objects that
/// owned descriptors before must not be destroyed afterwards: their numbers mean something else now.
Channel keepOnly(const UniqueFd& kept) {
  const int copy = ::fcntl(kept.get(), F_DUPFD_CLOEXEC, kFirstFree + 1);
  const int nowhere = openNowhere();
  if (copy < 0 || nowhere < 0) ::_exit(1);
  const int last = kKeepsStandardError ? STDOUT_FILENO : STDERR_FILENO;
  for (int standard = STDIN_FILENO; standard <= last; ++standard) {
    if (nowhere != standard) ::dup2(nowhere, standard);
  }
  if (::dup3(copy, kFirstFree, O_CLOEXEC) < 0) ::_exit(1);
  closeFrom(kFirstFree + 1);
  return Channel(UniqueFd(kFirstFree));
}

/// Signals of the terminal are for the program that the user sees; it ends us.
void resetSignals() {
  for (int signal = 1; signal < NSIG; ++signal) {
    if (signal != SIGKILL && signal != SIGSTOP && !(kKeepsStandardError && (signal == SIGSEGV || signal == SIGBUS))) {
      ::signal(signal, SIG_DFL);
    }
  }
  for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE, SIGXFSZ}) ::signal(signal, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Ends with its parent. False when that is gone already. A parent outside our process namespace, which a program may
/// have been given for its children (`unshare --pid`), has the number 0.
bool bindLifeTo(pid_t parent) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return false;
  const pid_t present = ::getppid();
  return present == parent || present == 0;
}

/// The nursery's side.
class Maker {
 public:
  Maker(Channel channel, WorkerBody body) : channel_(std::move(channel)), body_(std::move(body)) {}

  void run() {
    prepareSpare();  // the first is wanted soon
    Message request;
    while (channel_.receive(&request, -1, false) == Channel::Status::message) {
      ProcessNumber number;
      bool isAnswered = true;
      if (request.kind() == kMake) {
        isAnswered = answerMake();
      } else if (request.kind() == kEnd && request.read(&number)) {
        isAnswered = channel_.send(Message(kEnded, end(number.value)));
      }
      if (!isAnswered) return;  // the end of this process tells the program what no message can
      reap();
    }
  }

 private:
  struct Spare {
    UniqueFd socket;
    pid_t process = -1;
  };

  void prepareSpare() {
    UniqueFd ours;
    UniqueFd theirs;
    if (!Channel::makePair(&ours, &theirs)) return;
    const pid_t self = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
      if (!bindLifeTo(self)) ::_exit(1);
      const Channel channel = keepOnly(theirs);
      body_(channel);
      ::_exit(0);
    }
    if (child < 0) return;
    children_[child] = std::nullopt;
    spare_.socket = std::move(ours);
    spare_.process = child;
  }

  bool answerMake() {
    if (spare_.process < 0) prepareSpare();
    const Spare spare = std::exchange(spare_, Spare());
    return channel_.send(Message(kMade, ProcessNumber{spare.process}), spare.socket.get());
  }

  void reap() {
    for (auto& [process, status] : children_) look(process, &status);
  }

  static void look(pid_t process, std::optional<int>* status) {
    int ended = 0;
    if (!*status && ::waitpid(process, &ended, WNOHANG) == process) *status = ended;
  }

  ProcessEnd end(pid_t process) {
    const auto child = children_.find(process);
    if (child == children_.end()) return {process};
    look(process, &child->second);
    // Its number is its own as long as nobody has waited for it.
    if (!child->second) ::kill(process, SIGKILL);
    for (int waited = 0; !child->second && waited < kEndMilliseconds; ++waited) {
      look(process, &child->second);
      if (!child->second) ::poll(nullptr, 0, 1);
    }
    if (!child->second) return {process};
    const ProcessEnd answer{process, 1, *child->second};
    children_.erase(child);
    return answer;
  }

  Channel channel_;
  WorkerBody body_;
  Spare spare_;
  std::map<pid_t, std::optional<int>> children_;  // with their status once they have ended
};

std::string textOfStatus(int status) {
  if (WIFEXITED(status)) return format("status {}", WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  return format("signal {} ({})", signal, ::strsignal(signal));
}

}  // namespace

std::unique_ptr<Nursery> Nursery::start(WorkerBody body, const std::function<void()>& prepare, std::string* error,
                                        std::chrono::milliseconds patience) {
  const int threads = threadCount() - kThreadsOfTheRuntime;
  if (threads > 1) {
    *error = format("{} threads run already", threads);
    return nullptr;
  }
  UniqueFd ours;
  UniqueFd theirs;
  if (!Channel::makePair(&ours, &theirs)) {
    *error = std::strerror(errno);
    return nullptr;
  }
  const pid_t self = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) {
    *error = std::strerror(errno);
    return nullptr;
  }
  if (child == 0) {
    if (!bindLifeTo(self)) ::_exit(1);
    resetSignals();
    endsOnRefusedMemory = true;
    Channel channel = keepOnly(theirs);
    if (prepare) prepare();
    Maker(std::move(channel), std::move(body)).run();
    ::_exit(0);
  }
  return std::unique_ptr<Nursery>(new Nursery(Channel(std::move(ours)), child, patience));
}

Nursery::~Nursery() {
  channel_.shutDown();  // it ends at that, and its workers with it
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

Channel::Status Nursery::ask(const Message& question, Message* answer,
                             const std::function<bool(const Message&)>& isMeant) {
  if (!channel_.send(question)) return Channel::Status::ended;
  // What comes first may be the answer to a question that was given up.
  Channel::Status status = Channel::Status::message;
  do {
    status = channel_.receive(answer, static_cast<int>(patience_.count()), true);
  } while (status == Channel::Status::message && !isMeant(*answer));
  return status;
}

std::optional<Worker> Nursery::makeWorker(std::string* error) {
  const std::lock_guard lock(mutex_);
  Message answer;
  ProcessNumber number;
  const auto isMade = [&number](const Message& message) { return message.kind() == kMade && message.read(&number); };
  if (const auto status = ask(Message(kMake), &answer, isMade); status != Channel::Status::message) {
    *error = status == Channel::Status::timeout ? "the process that makes decoders does not answer"
                                                : "the process that makes decoders has ended";
    return std::nullopt;
  }
  UniqueFd socket = answer.takeDescriptor();
  if (!socket || number.value < 0) {
    *error = "no process for a decoder";
    return std::nullopt;
  }
  return Worker{Channel(std::move(socket)), number.value};
}

std::string Nursery::endWorker(pid_t process) {
  const std::lock_guard lock(mutex_);
  Message answer;
  ProcessEnd end;
  const auto isEnd = [&end, process](const Message& message) {
    return message.kind() == kEnded && message.read(&end) && end.process == process;
  };
  const bool isTold = ask(Message(kEnd, ProcessNumber{process}), &answer, isEnd) == Channel::Status::message;
  return isTold && end.isKnown != 0 ? textOfStatus(end.status) : "unknown";
}

}  // namespace vistrelle::platform
