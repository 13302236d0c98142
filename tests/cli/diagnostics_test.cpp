#include "vistrelle/cli/diagnostics.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

using testing::readFile;
using testing::RecordingLog;
using testing::ScratchFolder;

TEST(Diagnostics, VerboseSwitchIsOffAtStartAndKeepsWhatItIsSetTo) {
  EXPECT_FALSE(isVerbose());
  setVerbose(true);
  EXPECT_TRUE(isVerbose());
  setVerbose(false);
  EXPECT_FALSE(isVerbose());
}

TEST(Diagnostics, VerboseLinesAreWrittenOnlyWhenVerbose) {
  RecordingLog record;
  logVerbose("detail {}", 1);
  EXPECT_TRUE(record.lines().empty());
  setVerbose(true);
  logVerbose("detail {}", 2);
  log("always {}", 3);
  EXPECT_EQ(record.lines(), (std::vector<std::string>{"detail 2", "always 3"}));
}

TEST(Diagnostics, FinerLevelsAreFixedOff) {
  RecordingLog record(true);
  for (const int level : {-1, 0, 1, 2, 99}) EXPECT_FALSE(isVerboseLevel(level));
}

TEST(Diagnostics, FlagsAndReferences) {
  EXPECT_FALSE(exportFinished());
  setExportFinished(true);
  EXPECT_TRUE(exportFinished());
  setExportFinished(false);
  EXPECT_TRUE(generalFlag());
  setGeneralFlag(false);
  EXPECT_FALSE(generalFlag());
  setGeneralFlag(true);
  int objects[7] = {};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(objectReference(i), nullptr);
    setObjectReference(i, &objects[i]);
  }
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(objectReference(i), &objects[i]);
    setObjectReference(i, nullptr);
  }
  setObjectReference(7, objects);
  setObjectReference(-1, objects);
  EXPECT_EQ(objectReference(7), nullptr);
  EXPECT_EQ(objectReference(-1), nullptr);
}

TEST(Diagnostics, Markers) {
  EXPECT_STREQ(markerTime(), "time=");
  EXPECT_STREQ(markerSteps(), "steps          : ");
  EXPECT_STREQ(markerPourcentage(), "pourcentage    : ");
  EXPECT_STREQ(markerBatch(), "(batch ");
  EXPECT_STREQ(markerProcessing(), "Processing (");
  EXPECT_STREQ(markerBar(), "| (");
}

TEST(Diagnostics, SmallForms) {
  EXPECT_TRUE(alwaysTrue());
  noOperation();
  noOperation2();
  EXPECT_TRUE(isMultipleOf(12, 4));
  EXPECT_TRUE(isMultipleOf(-12, 4));
  EXPECT_TRUE(isMultipleOf(0, 4));
  EXPECT_FALSE(isMultipleOf(13, 4));
  EXPECT_TRUE(areMultiplesOf(12, 18, 6));
  EXPECT_FALSE(areMultiplesOf(12, 17, 6));
  EXPECT_FALSE(areMultiplesOf(11, 18, 6));
}

TEST(Diagnostics, MultipleOfTheLowestNumberAndMinusOne) {
  // The quotient does not fit 64 bits; the answer does.
  EXPECT_TRUE(isMultipleOf(INT64_MIN, -1));
}

TEST(DiagnosticsDeathTest, DivisionByZeroIsFatal) {
  volatile std::int64_t zero = 0;
  EXPECT_DEATH(isMultipleOf(1, zero), "");
}

/// Runs `body` in a child whose standard output and error are files of `folder`; its exit status.
int inChild(const ScratchFolder& folder, const std::function<void()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (!std::freopen(folder.file("out").c_str(), "w", stdout) ||
        !std::freopen(folder.file("err").c_str(), "w", stderr)) {
      ::_exit(3);
    }
    body();
    std::fflush(nullptr);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Redirection, SendsBothStreamsToTheEndOfTheFile) {
  ScratchFolder folder;
  const std::string target = folder.write("log.txt", "before\n");
  ASSERT_EQ(inChild(folder,
                    [&] {
                      redirectStdoutToFile(target);
                      std::printf("out\n");
                      std::fflush(stdout);
                      std::fprintf(stderr, "err\n");
                      log("logged");
                      platform::plain("plain\n");
                    }),
            0);
  const std::string content = readFile(target);
  EXPECT_EQ(content.rfind("before\nout\nerr\n", 0), 0U) << content;
  EXPECT_NE(content.find(" logged\n"), std::string::npos) << content;
  EXPECT_EQ(content.substr(content.size() - 6), "plain\n");
  EXPECT_NE(readFile(folder.file("err")).find("redirectStdoutToFile…\n"), std::string::npos);
}

TEST(Redirection, PathThatCannotBeWrittenLeavesTheStreams) {
  ScratchFolder folder;
  const std::string target = folder.file("missing/log.txt");
  const std::string later = folder.file("later");
  ASSERT_EQ(inChild(folder,
                    [&] {
                      redirectStdoutToFile(target);
                      // A file opened from here on must not stand in for a closed standard stream.
                      std::FILE* const file = std::fopen(later.c_str(), "w");
                      std::printf("out\n");
                      log("logged");
                      if (file) std::fclose(file);
                      redirectStdoutToFile(folder.file("second"));
                      std::printf("redirected\n");
                    }),
            0);
  const std::string error = readFile(folder.file("err"));
  EXPECT_NE(error.find(" redirectStdoutToFile:-( '" + target + "'\n"), std::string::npos) << error;
  EXPECT_NE(error.find(" logged\n"), std::string::npos) << error;
  EXPECT_EQ(readFile(folder.file("out")), "out\n");
  EXPECT_EQ(readFile(later), "");
  EXPECT_EQ(readFile(folder.file("second")), "redirected\n");
}

TEST(Redirection, SecondCallChangesNothing) {
  ScratchFolder folder;
  const std::string target = folder.file("first");
  ASSERT_EQ(inChild(folder,
                    [&] {
                      redirectStdoutToFile(target);
                      redirectStdoutToFile(folder.file("second"));
                      std::printf("out\n");
                    }),
            0);
  const std::string content = readFile(target);
  EXPECT_NE(content.find("if (newStdout || newStderr)\n"), std::string::npos) << content;
  EXPECT_EQ(content.find("redirectStdoutToFile"), std::string::npos) << content;
  EXPECT_NE(content.find("out\n"), std::string::npos);
  EXPECT_NE(::access(folder.file("second").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace vistrelle
