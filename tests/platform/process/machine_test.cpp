#include "vistrelle/platform/process/machine.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <thread>

#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

using testing::ScratchFolder;

std::string kernel() {
  utsname names{};
  ::uname(&names);
  return names.release;
}

TEST(Machine, SystemVersionComesFromTheReleaseFile) {
  const ScratchFolder scratch;
  const auto plain = scratch.write("plain", "NAME=\"Some Linux\"\n# comment\nVERSION_ID=\"12\"\n");
  EXPECT_EQ(localMachine(plain)->systemVersion(), "Version 12 (Build " + kernel() + ")");
  const auto build = scratch.write("build", "VERSION_ID=24.04\nBUILD_ID='2024\\'a'\n");
  EXPECT_EQ(localMachine(build)->systemVersion(), "Version 24.04 (Build 2024'a)");
}

TEST(Machine, ReleaseFileWithoutAVersionGivesNone) {
  const ScratchFolder scratch;
  EXPECT_EQ(localMachine(scratch.write("rolling", "NAME=Rolling\nnonsense\n"))->systemVersion(), "");
  EXPECT_EQ(localMachine(scratch.file("absent"))->systemVersion(), "");
}

TEST(Machine, ThisSystemHasAVersionAndProcessors) {
  EXPECT_EQ(machine().get()->systemVersion().substr(0, 8), "Version ");
  EXPECT_GE(machine().get()->processorCount(), std::int64_t{1});
}

TEST(Machine, QuestionsOfOtherSystemsHaveNoAnswer) {
  EXPECT_FALSE(machine().get()->answer("sysv"));
  EXPECT_FALSE(machine().get()->answer("qtim"));
  EXPECT_FALSE(machine().get()->hardwareNumber("hw.cpusubtype"));
}

}  // namespace
}  // namespace vistrelle::platform
