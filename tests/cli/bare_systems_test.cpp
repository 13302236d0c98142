// Systems that lack what every desktop has: the tool makes the same pictures there.
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/child.h"
#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle {
namespace {

using testing::readFile;

class BareSystems : public ::testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "with the thread sanitizer the tool forks no decoders";
#endif
    if (!testing::canMount()) GTEST_SKIP() << "needs the right to mount and to make namespaces";
    ASSERT_EQ(shoot("right.jpg", {}).status, 0);
  }

  testing::RunResult shoot(const std::string& picture, const std::function<void()>& prepare) const {
    const std::string movie = testing::sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4");
    return testing::runTool({"-i", movie, "-o", folder.file(picture), "-w", "320", "-h", "240", "-tc", "1-2"}, prepare);
  }

  void expectTheSame(const std::function<void()>& prepare) const {
    const testing::RunResult run = shoot("picture.jpg", prepare);
    EXPECT_EQ(run.status, 0) << run.error;
    EXPECT_TRUE(readFile(folder.file("picture.jpg")) == readFile(folder.file("right.jpg")));
    EXPECT_EQ(run.error.find("confinement"), std::string::npos) << run.error;
  }

  testing::ScratchFolder folder;
};

TEST_F(BareSystems, ThereAreNoDevices) {
  expectTheSame([] {
    if (!testing::mountScratch("/dev", "size=64k")) ::_exit(2);
  });
}

TEST_F(BareSystems, ThereAreNoDevicesAndNoStandardStreams) {
  expectTheSame([] {
    if (!testing::mountScratch("/dev", "size=64k")) ::_exit(2);
    for (int descriptor = 0; descriptor < 3; ++descriptor) ::close(descriptor);
  });
}

TEST_F(BareSystems, ChildrenHaveAProcessNamespaceOfTheirOwn) {
  expectTheSame([] {
    // The leak checker's helper would be in the other namespace and wait for ever.
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    if (::unshare(CLONE_NEWPID) != 0) ::_exit(2);
  });
}

TEST_F(BareSystems, ThereAreNoProcessFiles) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the address sanitizer reads them itself";
#endif
  expectTheSame([] {
    if (!testing::mountScratch("/proc", "size=64k")) ::_exit(2);
  });
}

}  // namespace
}  // namespace vistrelle
