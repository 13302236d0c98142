// Each wall by itself: where one is missing, the others still stand.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "tests/support/child.h"
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
    rlimit core{};
    ::getrlimit(RLIMIT_CORE, &core);
    EXPECT_EQ(core.rlim_max, 0U);
  }));
}

}  // namespace
}  // namespace vistrelle::testing
