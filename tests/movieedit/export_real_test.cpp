#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieedit/export.h"

namespace vistrelle {
namespace {

using testing::readFile;
using testing::RecordingLog;
using testing::sampleMovie;
using testing::ScratchFolder;

/// Exports of real movies, from the file to the file.
class RealExport : public ::testing::Test {
 protected:
  ~RealExport() override { MYMOVIErelease(); }
  static Movie open(const std::string& path) { return movieLoad(path) ? MYMOVIEget() : nullptr; }
  static bool opens(const std::string& path) { return movieLoad(path); }
  std::size_t count() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }
  ScratchFolder folder_;
};

TEST_F(RealExport, EveryModeWritesAMovieThatOpens) {
  const std::string source = sampleMovie("v1.mp4");
  for (const auto& [mode, name] : {std::pair{-1, "a.mov"}, std::pair{2, "b.mov"}}) {
    RecordingLog log;
    const std::string path = folder_.file(name);
    EXPECT_TRUE(qtAvExport(open(source), path, mode)) << mode;
    EXPECT_TRUE(log.has("exportSession.status:-)"));
    EXPECT_TRUE(opens(path)) << mode;
  }
  const std::string sound = testing::soundClip(folder_);
  for (const std::int64_t mode : {-3, -2}) {
    RecordingLog log;
    EXPECT_TRUE(qtAvExport(open(sound), folder_.file("c.m4a"), mode));
    EXPECT_EQ(readFile(folder_.file("c.m4a")).substr(4, 8), "ftypM4A ");
  }
  EXPECT_EQ(count(), 4U);
}

TEST_F(RealExport, AMovieWithoutSoundLeavesNoM4aAndTheOldOneAlone) {
  const Movie movie = open(sampleMovie("iibbibb_editlist_videoonly.mp4"));
  ASSERT_TRUE(movie);
  const std::string old = folder_.write("old.m4a", "old");
  for (const std::string& path : {folder_.file("new.m4a"), old}) {
    RecordingLog log;
    EXPECT_FALSE(qtAvExport(movie, path, -3));
    EXPECT_TRUE(log.has("exportSession.status:-( the movie has no sound"));
    EXPECT_TRUE(log.has("exporter.status     : 4"));
    EXPECT_TRUE(log.has("exporter.error      :-( the movie has no sound"));
    EXPECT_TRUE(log.has("[qt|av]export       :-( failure (Couldn't write movie to file)"));
  }
  EXPECT_EQ(readFile(old), "old");
  EXPECT_EQ(count(), 1U);
}

// The whole operation with its sibling and its move; where the kill comes depends on the machine, what is found does
// not.
TEST_F(RealExport, AKilledProcessLeavesTheOldMovieOrTheNewOneWhole) {
  const std::string source = sampleMovie("v1.mp4");
  ASSERT_TRUE(qtAvExport(open(source), folder_.file("whole.mov"), -1));
  const std::string complete = readFile(folder_.file("whole.mov"));
  const std::string old(5000, 'o');
  const int rounds = std::getenv("VISTRELLE_LONG") != nullptr ? 100 : 8;
  for (int round = 0; round < rounds; ++round) {
    const std::string path = folder_.write("a.mov", old);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      RecordingLog log;
      while (qtAvExport(open(source), path, -1)) {
      }
      std::_Exit(1);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + 731 * round));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    // The move takes the old movie away when the new one is whole under its sibling's name.
    bool isWhole = false;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      if (entry.path().filename() == "whole.mov") continue;
      const std::string now = readFile(entry.path());
      isWhole = isWhole || now == old || now == complete;
      EXPECT_TRUE(entry.path() != path || now == old || now == complete) << now.size() << " bytes, round " << round;
    }
    EXPECT_TRUE(isWhole) << "round " << round;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      if (entry.path().filename() != "whole.mov") std::filesystem::remove(entry.path());
    }
  }
}

TEST_F(RealExport, AMissingFolderIsAFailedExport) {
  RecordingLog log;
  EXPECT_FALSE(qtAvExport(open(sampleMovie("v1.mp4")), folder_.file("missing/a.mov"), -1));
  EXPECT_TRUE(log.hasContaining("exporter.error      :-( No such file or directory"));
  EXPECT_EQ(count(), 0U);
}

TEST_F(RealExport, AnExistingMovieIsReplacedByOneOfItself) {
  const std::string path = folder_.file("movie.mov");
  ASSERT_TRUE(qtAvExport(open(sampleMovie("v1.mp4")), path, -1));
  RecordingLog log;
  EXPECT_TRUE(qtAvExport(open(path), path, 2));
  EXPECT_TRUE(opens(path));
  EXPECT_NE(readFile(path).find("apcn"), std::string::npos);
  EXPECT_EQ(count(), 1U);
}

}  // namespace
}  // namespace vistrelle
