// One call of the tool's fails (fault_shim.cpp), on a tiny movie: every n, or a spread of them in an ordinary run.
// Whatever fails, the tool ends orderly, says which file it is about, and what stands under the destination's name
// is the whole, right picture or nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/faults/spread.h"
#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle {
namespace {

using testing::readFile;
using testing::RunResult;
using testing::ScratchFolder;
using testing::spread;

/// A folder with one movie, the tool's picture of it, and runs of the tool in which a call fails.
class FaultyRuns {
 public:
  explicit FaultyRuns(const std::string& encoder, const std::string& extension = "mov")
      : movie_(folder_.file("tiny." + extension)), picture_(folder_.file("picture.jpg")) {
    testing::runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=160x96:r=25", "-t", "0.6", "-c:v",
                         encoder, "-pix_fmt", encoder == "prores_ks" ? "yuv422p10le" : "yuv420p", "-strict", "-2",
                         movie_});
    const RunResult whole = run("none", 0, "main");
    EXPECT_EQ(whole.status, 0) << whole.error;
    right_ = readFile(picture_);
    EXPECT_FALSE(right_.empty());
  }

  /// How many calls of a kind an undisturbed run makes.
  long count(const std::string& kind, const std::string& where) {
    const std::string counts = folder_.file("counts");
    std::filesystem::remove(counts);
    run(kind, 0, where, counts);
    return std::atol(readFile(counts).c_str());
  }

  /// Lets call number `n` fail and judges the outcome.
  void check(const std::string& kind, long n, const std::string& where) {
    const RunResult result = run(kind, n, where);
    SCOPED_TRACE(kind + " " + std::to_string(n) + " in " + where + ":\n" + result.error);
    EXPECT_EQ(result.signal, 0);
    if (result.status == 0) {
      EXPECT_TRUE(readFile(picture_) == right_) << "another picture";
      ++same_;
    } else {
      EXPECT_EQ(result.status, 1);
      EXPECT_FALSE(std::filesystem::exists(picture_));
      EXPECT_TRUE(result.error.find("tiny.") != std::string::npos ||
                  result.error.find("picture.jpg") != std::string::npos)
          << "no line names the file";
      ++refused_;
    }
    EXPECT_EQ(entries(), 2U) << "something was left behind";
  }

  /// The same over a picture of an earlier run: old or right, never half of each, and never old without a word.
  void checkOver(const std::string& kind, long n) {
    const std::string old(n % 2 == 0 ? 4000 : 200'000, 'o');
    const RunResult result = run(kind, n, "main", "", old);
    SCOPED_TRACE(kind + " " + std::to_string(n) + " over a picture:\n" + result.error);
    EXPECT_EQ(result.signal, 0);
    const std::string content = std::filesystem::exists(picture_) ? readFile(picture_) : "";
    EXPECT_TRUE(content == right_ || content == old || content.empty()) << content.size() << " bytes";
    if (content == right_) {
      ++same_;
      return;
    }
    ++refused_;
    EXPECT_TRUE(result.error.find("tiny.") != std::string::npos ||
                result.error.find("picture.jpg") != std::string::npos)
        << "no line names the file";
    EXPECT_EQ(result.status, content == old ? result.status : 1);
  }

  int same() const { return same_; }
  int refused() const { return refused_; }

 private:
  RunResult run(const std::string& kind, long n, const std::string& where, const std::string& counts = "",
                const std::string& old = "") {
    std::filesystem::remove(picture_);
    if (!old.empty()) folder_.write("picture.jpg", old);
    return testing::runTool({"-i", movie_, "-w", "160", "-h", "96", "-tc", "0.4", "-y", "-o", picture_}, [&] {
      ::setenv("VISTRELLE_FAULT", (kind + ":" + std::to_string(n)).c_str(), 1);
      ::setenv("VISTRELLE_FAULT_IN", where.c_str(), 1);
      if (!counts.empty()) ::setenv("VISTRELLE_FAULT_COUNT", counts.c_str(), 1);
      ::setenv("LD_PRELOAD", VISTRELLE_FAULT_SHIM, 1);
    });
  }

  /// The movie and the picture, where there is one; anything else is a stray.
  std::size_t entries() const {
    std::size_t count = std::filesystem::exists(picture_) ? 0 : 1;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_.path())) ++count;
    return std::filesystem::exists(folder_.file("counts")) ? count - 1 : count;
  }

  ScratchFolder folder_;
  std::string movie_;
  std::string picture_;
  std::string right_;
  int same_ = 0;
  int refused_ = 0;
};

void checkAll(FaultyRuns& runs, const std::string& kind, const std::string& where, long count, long sample) {
  const std::vector<long> numbers = spread(count, sample);
  for (const long n : numbers) runs.check(kind, n, where);
  std::cout << kind << " in " << where << ": " << numbers.size() << " of " << count << " calls failed, " << runs.same()
            << " runs gave the same picture, " << runs.refused() << " were refused\n";
}

struct Fault {
  const char* kind;
  const char* where;
};

class FailedCalls : public ::testing::TestWithParam<Fault> {};

TEST_P(FailedCalls, EndOrderly) {
  const auto [kind, where] = GetParam();
  FaultyRuns runs("mjpeg");
  const long count = runs.count(kind, where);
  ASSERT_GT(count, 0);
  checkAll(runs, kind, where, count, 300);
}

// Those that a run with one picture makes.
INSTANTIATE_TEST_SUITE_P(
    All, FailedCalls,
    ::testing::Values(Fault{"malloc", "main"}, Fault{"open", "main"}, Fault{"read", "main"}, Fault{"write", "main"},
                      Fault{"close", "main"}, Fault{"fork", "main"}, Fault{"pipe", "main"}, Fault{"open", "children"},
                      Fault{"read", "children"}, Fault{"write", "children"}, Fault{"close", "children"},
                      Fault{"fork", "children"}, Fault{"pipe", "children"}, Fault{"waitpid", "children"}),
    [](const auto& parameter) { return std::string(parameter.param.kind) + "_" + parameter.param.where; });

class FailedReplacing : public ::testing::TestWithParam<const char*> {};

TEST_P(FailedReplacing, LeavesTheOldOrTheRightPicture) {
  FaultyRuns runs("mjpeg");
  const long count = runs.count(GetParam(), "main");
  ASSERT_GT(count, 0);
  for (const long n : spread(count, 30)) {
    runs.checkOver(GetParam(), n);
    if (::testing::Test::HasFailure()) break;
  }
  std::cout << GetParam() << ": right " << runs.same() << ", not replaced " << runs.refused() << std::endl;
}

INSTANTIATE_TEST_SUITE_P(Calls, FailedReplacing, ::testing::Values("open", "write", "close"),
                         [](const auto& each) { return std::string(each.param); });

class FailedAllocations : public ::testing::TestWithParam<std::string> {};

TEST_P(FailedAllocations, InTheDecoderNeverGiveAnotherPicture) {
  FaultyRuns runs(GetParam(), GetParam() == "libvpx-vp9" ? "webm" : "mov");
  checkAll(runs, "malloc", "children", runs.count("malloc", "children"), 200);
}

INSTANTIATE_TEST_SUITE_P(Codecs, FailedAllocations,
                         ::testing::Values("mjpeg", "mpeg4", "libx264", "libx265", "prores_ks", "libvpx-vp9"),
                         [](const auto& parameter) {
                           std::string name = parameter.param;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace vistrelle
