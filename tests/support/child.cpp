#include "tests/support/child.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace vistrelle::testing {
namespace {

constexpr unsigned nobody = 65534;

int failuresSoFar() {
  const ::testing::TestResult* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
  int failures = 0;
  for (int part = 0; part < result->total_part_count(); ++part) failures += result->GetTestPartResult(part).failed();
  return failures;
}

}  // namespace

::testing::AssertionResult inChild(const std::function<void()>& body) {
  std::cout.flush();
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) return ::testing::AssertionFailure() << "fork failed";
  if (child == 0) {
    const int before = failuresSoFar();
    bool thrown = false;
    try {
      body();
    } catch (const std::exception& exception) {
      std::cout << "thrown in the child: " << exception.what() << std::endl;
      thrown = true;
    }
    std::cout.flush();
    std::fflush(nullptr);
    ::_exit(thrown || failuresSoFar() > before ? 1 : 0);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
  }
  if (WIFSIGNALED(status)) return ::testing::AssertionFailure() << "child ended by signal " << WTERMSIG(status);
  if (WEXITSTATUS(status) != 0) return ::testing::AssertionFailure() << "expectations failed in the child";
  return ::testing::AssertionSuccess();
}

bool isAdministrator() {
  return ::geteuid() == 0;
}

void becomeNobody() {
  if (!isAdministrator()) return;
  if (::setgroups(0, nullptr) != 0 || ::setresgid(nobody, nobody, nobody) != 0 ||
      ::setresuid(nobody, nobody, nobody) != 0) {
    std::abort();
  }
}

bool canMount() {
  static const bool possible = [] {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(isAdministrator() && mountScratch("/", "size=64k") ? 0 : 1);
    int status = 1;
    while (child > 0 && ::waitpid(child, &status, 0) < 0) {
    }
    return child > 0 && status == 0;
  }();
  return possible;
}

bool mountScratch(const char* folder, const char* options, const char* type) {
  static bool own = false;
  if (!own) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    own = true;
  }
  return ::mount("none", folder, type, 0, options) == 0;
}

}  // namespace vistrelle::testing
