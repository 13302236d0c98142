// What a refusal costs: the loader tells which libraries a run of the tool has loaded.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle {
namespace {

using testing::RunResult;
using testing::sampleMovie;
using testing::ScratchFolder;

const std::string kCamera = "sample_with_increasing_timestamps_320w_240h_5s.mp4";

RunResult runTraced(const std::vector<std::string>& arguments) {
  return testing::runTool(arguments, [] { ::setenv("LD_DEBUG", "files", 1); });
}

bool loads(const RunResult& run, const std::string& library) {
  return run.error.find("calling init: /") != std::string::npos && run.error.find("/" + library) != std::string::npos;
}

class Refusal : public ::testing::Test {
 protected:
  void expectLight(const RunResult& run, const std::string& refusal) {
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.error.find(refusal), std::string::npos) << run.error;
    EXPECT_TRUE(loads(run, "libc.so")) << "the loader says nothing";
    for (const char* library : {"libav", "libsw", "libjpeg", "libtiff", "libicu", "libgio", "libglib"}) {
      EXPECT_FALSE(loads(run, library)) << library;
    }
  }
  ScratchFolder folder;
  std::string out = folder.file("out.jpg");
};

TEST_F(Refusal, OfAMissingSourceLoadsNoMediaLibrary) {
  expectLight(runTraced({"-i", folder.file("absent.mp4"), "-o", out, "-tc", "1"}), "srcPathStr file doesn't exist");
}

TEST_F(Refusal, OfAMissingListLoadsNoMediaLibrary) {
  expectLight(runTraced({"-i", sampleMovie(kCamera), "-o", out}), "no timecode (Exit)");
}

TEST_F(Refusal, OfAnExistingDestinationLoadsNoMediaLibrary) {
  folder.write("there.jpg", "x");
  expectLight(runTraced({"-i", sampleMovie(kCamera), "-o", folder.file("there.jpg"), "-tc", "1"}),
              "dst file already exists");
}

TEST_F(Refusal, ARunThatIsAcceptedLoadsThem) {
  const RunResult run = runTraced({"-i", sampleMovie(kCamera), "-o", out, "-tc", "1"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(loads(run, "libjpeg"));
}

}  // namespace
}  // namespace vistrelle
