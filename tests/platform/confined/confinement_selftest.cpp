// Tries in confined processes what a decoder has no business to do, and prints what came of it. Status 1 when one of
// the acts succeeds, 77 when the kernel lacks a wall that is needed for the answer.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "vistrelle/platform/media/confined/confinement.h"

namespace {

using namespace vistrelle::platform;

constexpr int kSkipped = 77;

struct Answer {
  int succeeded = 0;
  int error = 0;
};

Answer answerOf(bool succeeded) {
  return {succeeded ? 1 : 0, errno};
}

bool connects(int type) {
  const int socket = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(9);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (socket < 0) return false;
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  // Nobody listens there: "connection refused" means that the act itself was allowed.
  return ::connect(socket, generic, sizeof address) == 0 || errno == ECONNREFUSED;
}

bool forks() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  return child > 0;
}

bool runsProgram() {
  // A program that runs ends with 0, which the caller of this act takes for success.
  ::execl("/bin/true", "true", nullptr);
  return false;
}

bool takesMemory() {
  constexpr std::size_t kBytes = std::size_t{3} << 30;
  return ::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED;
}

struct Act {
  const char* name;
  std::function<bool()> perform;
  std::function<bool(const ConfinementReport&)> isWalled;
};

bool hasFileWall(const ConfinementReport& report) {
  return report.calls != 0 || report.landlockAbi > 0;
}
bool hasCallWall(const ConfinementReport& report) {
  return report.calls != 0;
}
bool hasLimits(const ConfinementReport& report) {
  return report.limits != 0;
}

/// What the child tells: its walls, then its act. A program that took the child's place tells nothing.
struct Told {
  ConfinementReport report;
  Answer answer;
  bool hasReport = false;
  bool hasAnswer = false;
  int status = 0;
};

Told perform(const Act& act) {
  Told told;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return told;
  const pid_t child = ::fork();
  if (child == 0) {
    const ConfinementReport report = confineProcess({}, Refusal::error);
    (void)!::write(ends[1], &report, sizeof report);
    const Answer answer = answerOf(act.perform());
    (void)!::write(ends[1], &answer, sizeof answer);
    ::_exit(2);
  }
  ::close(ends[1]);
  told.hasReport = ::read(ends[0], &told.report, sizeof told.report) == sizeof told.report;
  told.hasAnswer = ::read(ends[0], &told.answer, sizeof told.answer) == sizeof told.answer;
  ::close(ends[0]);
  ::waitpid(child, &told.status, 0);
  return told;
}

}  // namespace

int main() {
  const std::string created = "/tmp/vistrelle-selftest-" + std::to_string(::getpid());
  const Act acts[] = {
      {"read a file", [] { return ::open("/etc/passwd", O_RDONLY | O_CLOEXEC) >= 0; }, hasFileWall},
      {"create a file", [&created] { return ::open(created.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600) >= 0; },
       hasFileWall},
      {"connect", [] { return connects(SOCK_STREAM); }, hasCallWall},
      {"UDP", [] { return connects(SOCK_DGRAM); }, hasCallWall},
      {"exec", [] { return runsProgram(); }, hasFileWall},
      {"fork", [] { return forks(); }, hasCallWall},
      {"signal the parent", [] { return ::kill(::getppid(), 0) == 0; },
       [](const ConfinementReport& report) { return report.calls != 0 || report.landlockAbi >= 6; }},
      {"ptrace", [] { return ::ptrace(PTRACE_SEIZE, ::getppid(), nullptr, nullptr) == 0; }, hasCallWall},
      {"3 GiB of memory", [] { return takesMemory(); }, hasLimits},
  };
  int failures = 0;
  std::string missing;
  bool isMissing = false;
  for (const Act& act : acts) {
    const Told told = perform(act);
    if (!told.hasReport) {
      std::printf("%-20s no answer\n", act.name);
      ++failures;
      continue;
    }
    missing = told.report.missing();
    const bool succeeded = !told.hasAnswer || told.answer.succeeded != 0;
    if (!succeeded) {
      std::printf("%-20s refused (%s)\n", act.name, std::strerror(told.answer.error));
    } else if (act.isWalled(told.report)) {
      std::printf("%-20s NOT REFUSED\n", act.name);
      ++failures;
    } else {
      std::printf("%-20s not refused: this kernel has no wall against it\n", act.name);
      isMissing = true;
    }
  }
  ::unlink(created.c_str());
  if (!missing.empty()) std::printf("missing: %s\n", missing.c_str());
  if (failures > 0) return 1;
  return isMissing ? kSkipped : 0;
}
