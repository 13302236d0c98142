// Each wall by itself: where one is missing, the others still stand.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "tests/support/child.h"
#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/media/confined/confinement.h"

namespace vistrelle::testing {
namespace {

using platform::ConfinementReport;
using platform::Refusal;

TEST(Walls, TheReportNamesWhatIsMissing) {
  EXPECT_EQ(ConfinementReport().missing(), "no_new_privs, resource limits, Landlock, seccomp");
  EXPECT_EQ((ConfinementReport{1, 1, 1, 1}.missing()), "");
  EXPECT_EQ((ConfinementReport{1, 1, 0, 1}.missing()), "seccomp");
  EXPECT_EQ((ConfinementReport{1, 1, 1, 0}.missing()), "Landlock");
}

TEST(Walls, LandlockAloneRefusesFiles) {
  const bool exists = static_cast<bool>(inChild([] {
    platform::forbidNewPrivileges();
    if (platform::forbidFilesByLandlock() == 0) throw std::runtime_error("no Landlock");
  }));
  if (!exists) GTEST_SKIP() << "this kernel has no Landlock";
  EXPECT_TRUE(inChild([] {
    platform::forbidNewPrivileges();
    platform::forbidFilesByLandlock();
    EXPECT_LT(::open("/etc/passwd", O_RDONLY | O_CLOEXEC), 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_LT(::open("/tmp/vistrelle-walls", O_RDWR | O_CREAT | O_CLOEXEC, 0600), 0);
    EXPECT_LT(::open("/dev/null", O_RDWR | O_CLOEXEC), 0);
  }));
}

/// The version of Landlock that this kernel has.
int landlockVersion() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(platform::forbidNewPrivileges() ? platform::forbidFilesByLandlock() : 0);
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 0;
}

TEST(Walls, LandlockAloneRefusesWhatItsVersionKnows) {
  const int version = landlockVersion();
  if (version < 4) GTEST_SKIP() << "this kernel's Landlock has version " << version << ", which knows files only";
  EXPECT_TRUE(inChild([version] {
    platform::forbidNewPrivileges();
    ASSERT_EQ(platform::forbidFilesByLandlock(), version);
    const platform::UniqueFd stream(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(stream);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_NE(::bind(stream.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);
    EXPECT_EQ(errno, EACCES);
    local.sin_port = htons(9);
    EXPECT_NE(::connect(stream.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);
    EXPECT_EQ(errno, EACCES);
    if (version < 6) return;
    EXPECT_NE(::kill(::getppid(), 0), 0);
    EXPECT_EQ(errno, EPERM);
  }));
}

TEST(Walls, TheListOfCallsAloneRefusesFilesSocketsAndProcesses) {
  EXPECT_TRUE(inChild([] {
    platform::forbidNewPrivileges();
    ASSERT_TRUE(platform::allowListedCallsOnly(Refusal::error));
    EXPECT_LT(::open("/etc/passwd", O_RDONLY | O_CLOEXEC), 0);
    EXPECT_EQ(errno, EPERM);
    EXPECT_LT(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), 0);
    EXPECT_EQ(errno, EPERM);
    EXPECT_LT(::fork(), 0);
    EXPECT_EQ(::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), MAP_FAILED);
    void* page = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(page, MAP_FAILED);
    EXPECT_NE(::mprotect(page, 4096, PROT_READ | PROT_EXEC), 0);
  }));
}

TEST(Walls, LimitsAreOnlyLowered) {
  EXPECT_TRUE(inChild([] {
    const rlimit few{20, 20};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_TRUE(platform::applyLimits({}));
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    EXPECT_EQ(files.rlim_max, 20U);
  }));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasShadowMemory = true;  // which is not limited
#else
constexpr bool kHasShadowMemory = false;
#endif

TEST(Walls, EveryLimitIsInForce) {
  EXPECT_TRUE(inChild([] {
    const platform::ConfinementLimits limits;
    ASSERT_TRUE(platform::applyLimits(limits));
    const auto most = [](__rlimit_resource resource) {
      rlimit limit{};
      EXPECT_EQ(::getrlimit(resource, &limit), 0);
      EXPECT_LE(limit.rlim_cur, limit.rlim_max);
      return limit.rlim_max;
    };
    EXPECT_EQ(most(RLIMIT_CORE), 0U);
    EXPECT_LE(most(RLIMIT_FSIZE), limits.fileBytes);
    EXPECT_LE(most(RLIMIT_NOFILE), limits.descriptors);
    EXPECT_LE(most(RLIMIT_CPU), limits.cpuSeconds);
    if (kHasShadowMemory) return;
    EXPECT_LE(most(RLIMIT_DATA), limits.dataBytes);
    EXPECT_LE(most(RLIMIT_AS), limits.addressBytes);
  }));
}

}  // namespace
}  // namespace vistrelle::testing
