// The tool maps no GUI library, whatever it does: alerts belong to a process of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/display.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

/// The files that a run of the tool has mapped when it ends. What it says goes to the file `said`.
std::string mapsAtTheEnd(const std::vector<std::string>& arguments, const std::string& said = "/dev/null") {
  const pid_t tool = ::fork();
  if (tool == 0) {
    ::dup2(::open(said.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    std::vector<char*> words{const_cast<char*>(VISTRELLE_TOOL)};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    // A leak check at the end traces its own process, which has a tracer already.
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::execv(VISTRELLE_TOOL, words.data());
    ::_exit(127);
  }
  std::string maps;
  int status = 0;
  bool begun = false;
  while (::waitpid(tool, &status, 0) == tool && WIFSTOPPED(status)) {
    int signal = WSTOPSIG(status);
    if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8))) {
      maps = testing::readFile("/proc/" + std::to_string(tool) + "/maps");
      signal = 0;
    } else if (!begun) {
      begun = true;
      ::ptrace(PTRACE_SETOPTIONS, tool, nullptr, PTRACE_O_TRACEEXIT);
      signal = 0;
    }
    ::ptrace(PTRACE_CONT, tool, nullptr, signal);
  }
  return maps;
}

/// The X protocol's libraries do not count: the distribution's media libraries link them for hardware decoding.
void expectNoGuiLibrary(const std::string& maps) {
  ASSERT_NE(maps.find("libc.so"), std::string::npos) << maps;
  for (const char* library : {"libQt", "libgtk", "libwayland", "libEGL", "libGL.", "vistrelle-dialogs-qt"}) {
    EXPECT_EQ(maps.find(library), std::string::npos) << library;
  }
}

TEST(GuiLibraries, ARunWithoutAnAlertMapsNone) {
  const testing::ScratchFolder folder;
  expectNoGuiLibrary(mapsAtTheEnd(
      {"-i", std::string(VISTRELLE_TEST_DATA) + "/prog_8s.mp4", "-o", folder.path(), "-tc", "0:00:01", "-y"}));
  EXPECT_EQ(
      ::access(folder.file("img00.jpg").c_str(), F_OK) == 0 || ::access(folder.file("img01.jpg").c_str(), F_OK) == 0,
      true);
}

TEST(GuiLibraries, ARunWithAnAlertMapsNoneEither) {
#ifndef VISTRELLE_ROBOT_FOLDER
  GTEST_SKIP() << "built without Qt 6: there are no windows to test";
#else
  const testing::ScratchFolder folder;
  const testing::Environment robot(testing::Environment::Variables{{"QT_QPA_PLATFORM", "offscreen"},
                                                                   {"QT_PLUGIN_PATH", VISTRELLE_ROBOT_FOLDER},
                                                                   {"QT_QPA_GENERIC_PLUGINS", "vistrellerobot"},
                                                                   {"VISTRELLE_ROBOT", "click button0"}});
  // Too small a time to be meant.
  expectNoGuiLibrary(mapsAtTheEnd(
      {"-v", "-i", std::string(VISTRELLE_TEST_DATA) + "/prog_8s.mp4", "-o", folder.path(), "-tc", "0.0001", "-y"},
      folder.file("said")));
  EXPECT_NE(testing::readFile(folder.file("said")).find("FERMETURE USER      : CLIC"), std::string::npos);
#endif
}

TEST(GuiLibraries, ARefusedRunMapsNone) {
  expectNoGuiLibrary(mapsAtTheEnd({"-i", "/nowhere/at all.mov"}));
}

}  // namespace
}  // namespace vistrelle
