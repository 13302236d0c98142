#include "vistrelle/platform/files/termination_hold.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {
namespace {

/// The wait status of a child that ran `body`.
int statusOf(const std::function<void()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(20);
    body();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

TEST(TerminationHold, SignalTakesEffectWhenTheLastHoldEnds) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    testing::ScratchFolder folder;
    const int status = statusOf([&] {
      const TerminationHold outer;
      {
        const TerminationHold inner;
        ::kill(::getpid(), signal);
      }
      (void)fileManager().get()->writeInPlace(folder.file("reached"), bytesOf("x"));
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_EQ(testing::readFile(folder.file("reached")), "x");
  }
}

TEST(TerminationHold, NothingHappensWithoutASignal) {
  const int status = statusOf([] { const TerminationHold hold; });
  EXPECT_TRUE(WIFEXITED(status));
}

TEST(TerminationHold, DefaultActionIsBackAfterwards) {
  const int status = statusOf([] {
    { const TerminationHold hold; }
    ::raise(SIGTERM);
  });
  EXPECT_TRUE(WIFSIGNALED(status));
}

void leave(int) {
  ::_exit(7);
}

TEST(TerminationHold, HandlersOfTheHostAreLeftAlone) {
  const int status = statusOf([] {
    ::signal(SIGTERM, leave);
    const TerminationHold hold;
    ::raise(SIGTERM);
  });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

}  // namespace
}  // namespace vistrelle::platform
