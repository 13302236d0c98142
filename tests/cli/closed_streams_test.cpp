// Whichever of the three standard descriptors are closed when the tool starts, its words never end up in a file that
// it opens in their place.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle {
namespace {

using testing::readFile;
using testing::ScratchFolder;

class ClosedStreams : public ::testing::TestWithParam<int> {
 protected:
  testing::RunResult shoot(const std::string& movie, const std::string& picture, int closed) const {
    return testing::runTool({"-v", "-i", movie, "-o", picture, "-w", "320", "-h", "240", "-tc", "1-2", "-y"}, [closed] {
      for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((closed & 1 << descriptor) != 0) ::close(descriptor);
      }
    });
  }
};

TEST_P(ClosedStreams, NoFileTakesTheirPlace) {
  const ScratchFolder folder;
  const std::string movie = folder.file("movie.mp4");
  std::filesystem::copy_file(testing::sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4"), movie);
  const std::string content = readFile(movie);
  const std::string picture = folder.file("picture.jpg");
  const testing::RunResult whole = shoot(movie, picture, 0);
  ASSERT_EQ(whole.status, 0) << whole.error;
  const std::string right = readFile(picture);
  ASSERT_FALSE(right.empty());
  // Over a picture that is there, and as a new one.
  for (const bool isNew : {false, true}) {
    if (isNew) std::filesystem::remove(picture);
    const testing::RunResult run = shoot(movie, picture, GetParam());
    EXPECT_EQ(run.status, 0) << run.error;
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.error.empty(), (GetParam() & 1 << STDERR_FILENO) != 0);
    EXPECT_TRUE(readFile(picture) == right);
    EXPECT_TRUE(readFile(movie) == content);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
  }
}

INSTANTIATE_TEST_SUITE_P(Subsets, ClosedStreams, ::testing::Range(1, 8), [](const auto& each) {
  std::string name;
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    if ((each.param & 1 << descriptor) != 0) name += std::to_string(descriptor);
  }
  return name;
});

}  // namespace
}  // namespace vistrelle
