// The tool where pictures cannot be written: what stands under a destination's name afterwards is what stood there
// before, a whole picture or nothing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

bool isWholeJpeg(const std::string& path) {
  const std::string bytes = readFile(path);
  return bytes.starts_with("\xFF\xD8") && bytes.ends_with("\xFF\xD9") && platform::Picture::load(path) != nullptr;
}

void limitFiles(rlim_t bytes) {
  const rlimit limit{bytes, bytes};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(126);
}

class Writes : public ::testing::Test {
 protected:
  Writes() : movie(folder.file("movie.mov")) {
    // Noise, so that pictures are large.
    runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=320x240:r=10", "-vf", "noise=alls=90:allf=t",
                "-t", "6", "-c:v", "mjpeg", "-q:v", "2", movie});
  }

  RunResult shoot(const std::string& destination, const std::string& timecodes,
                  const std::function<void()>& prepare = {}) const {
    return runTool({"-i", movie, "-w", "1280", "-h", "960", "-tc", timecodes, "-y", "-o", destination}, prepare);
  }

  std::size_t entries(const std::string& path) const {
    return static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(path), {}));
  }

  const ScratchFolder folder;
  const std::string movie;
  const std::string old = std::string(5000, 'o');
};

TEST_F(Writes, ASeriesOntoADiskThatFillsUp) {
  if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  for (const char* size : {"size=1m", "size=4m"}) {
    const std::string disk = folder.makeFolder(std::string("disk") + size);
    EXPECT_TRUE(inChild([&] {
      ASSERT_TRUE(mountScratch(disk.c_str(), size));
      const std::string pictures = disk + "/pictures";
      fs::create_directory(pictures);
      std::string timecodes = "0";
      for (int i = 1; i < 30; ++i) timecodes += "-" + std::to_string(0.5 * (i % 11)).substr(0, 3);
      const RunResult run = shoot(pictures, timecodes);
      // The last picture fails, so the run has, and takes all it made along.
      EXPECT_EQ(run.status, 1) << run.error;
      EXPECT_FALSE(fs::exists(pictures));
      // Pictures of an earlier run are replaced as long as there is room, and stay as they are when there is none.
      fs::create_directory(pictures);
      std::ofstream(pictures + "/img29.jpg") << old;
      const RunResult over = shoot(pictures, timecodes);
      EXPECT_EQ(over.status, 0) << over.error;
      int whole = 0;
      for (const auto& entry : fs::directory_iterator(pictures)) {
        const std::string name = entry.path().filename().string();
        if (name == "img29.jpg") {
          EXPECT_EQ(readFile(entry.path().string()), old);
        } else {
          EXPECT_TRUE(isWholeJpeg(entry.path().string())) << name;
          ++whole;
        }
      }
      EXPECT_GT(whole, 0);
      EXPECT_LT(whole, 29);
      EXPECT_NE(over.error.find("not written, what was there stays : " + pictures + "/img29.jpg\n"), std::string::npos)
          << over.error;
    }));
  }
}

TEST_F(Writes, FilesBeyondTheSizeLimit) {
  const std::string picture = folder.file("picture.tiff");
  for (const rlim_t limit : {rlim_t{0}, rlim_t{4096}, rlim_t{1} << 20}) {
    fs::remove(picture);
    const RunResult fresh = shoot(picture, "1", [limit] { limitFiles(limit); });
    EXPECT_EQ(fresh.signal, 0);
    EXPECT_EQ(fresh.status, 1) << fresh.error;
    EXPECT_FALSE(fs::exists(picture));
  }
  // A picture could be had but not be written, and the rules call what stands there a success.
  folder.write("picture.tiff", old);
  const RunResult over = shoot(picture, "1", [] { limitFiles(1 << 20); });
  EXPECT_EQ(over.status, 0) << over.error;
  EXPECT_EQ(readFile(picture), old);
  EXPECT_NE(over.error.find("not written, what was there stays : " + picture + "\n"), std::string::npos) << over.error;
  EXPECT_EQ(entries(folder.path()), 2U);
}

TEST_F(Writes, IntoAFolderThatMayOnlyBeRead) {
  if (!isAdministrator()) GTEST_SKIP() << "only the administrator can become another user";
  const std::string pictures = folder.makeFolder("pictures");
  folder.write("pictures/img00.jpg", old);
  const std::string tool = folder.file("vistrelle");
  fs::copy_file(VISTRELLE_TOOL, tool);
  ASSERT_EQ(::chmod(movie.c_str(), 0444), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(pictures.c_str(), 0555), 0);
  const auto shootAll = [&](const char* timecodes) {
    return runProgram({tool, "-i", movie, "-w", "320", "-h", "240", "-tc", timecodes, "-y", "-o", pictures},
                      becomeNobody);
  };
  // The last picture decides: there is none, or an older one.
  EXPECT_EQ(shootAll("1-2").status, 1);
  const RunResult over = shootAll("1");
  EXPECT_EQ(over.status, 0) << over.error;
  EXPECT_NE(over.error.find("not written, what was there stays : " + pictures + "/img00.jpg\n"), std::string::npos);
  EXPECT_EQ(readFile(pictures + "/img00.jpg"), old);
  EXPECT_EQ(entries(pictures), 1U);
  ASSERT_EQ(::chmod(pictures.c_str(), 0755), 0);
}

/// A run of many pictures that cannot come to its end before its words are read.
std::unique_ptr<RunningProgram> longRun(const std::string& movie, const std::string& pictures) {
  std::string timecodes = "0";
  for (int i = 1; i < 200; ++i) timecodes += "-" + std::to_string(i % 6);
  return std::make_unique<RunningProgram>(
      toolCommand({"-v", "-i", movie, "-w", "640", "-h", "480", "-tc", timecodes, "-y", "-o", pictures}), [] {
        if (::fcntl(STDERR_FILENO, F_SETPIPE_SZ, 4096) < 0) ::_exit(126);
      });
}

TEST_F(Writes, IntoAFolderThatIsRemovedInMidRun) {
  const std::string pictures = folder.makeFolder("pictures");
  const auto program = longRun(movie, pictures);
  ASSERT_TRUE(program->waitForError("steps          : 2\n"));
  // A picture that is made in between keeps the folder from going.
  std::error_code error;
  do {
    fs::remove_all(pictures, error);
  } while (error && fs::exists(pictures));
  const RunResult run = program->finish();
  EXPECT_EQ(run.signal, 0);
  // What is no folder is a file: the pictures that were still to come are written under its name, the last one stays.
  EXPECT_EQ(run.status, 0) << run.error;
  EXPECT_TRUE(isWholeJpeg(pictures));
  EXPECT_EQ(entries(folder.path()), 2U);
}

TEST_F(Writes, IntoAFolderWhoseParentIsRemovedInMidRun) {
  const std::string parent = folder.makeFolder("parent");
  const std::string pictures = folder.makeFolder("parent/pictures");
  const auto program = longRun(movie, pictures);
  ASSERT_TRUE(program->waitForError("steps          : 2\n"));
  fs::rename(parent, folder.file("gone"));
  fs::remove_all(folder.file("gone"));
  const RunResult run = program->finish();
  EXPECT_EQ(run.signal, 0);
  EXPECT_EQ(run.status, 1) << run.error;
  EXPECT_EQ(entries(folder.path()), 1U);
}

}  // namespace
}  // namespace vistrelle::testing
