#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/imaging/drawing.h"
#include "vistrelle/platform/imaging/formats.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOwnAllocator = true;
#else
constexpr bool kOwnAllocator = false;
#endif

namespace vistrelle::platform {
namespace {

/// No more than `spare` bytes beyond what the process has mapped now.
void limitMemory(std::size_t spare) {
  std::size_t pages = 0;
  FILE* file = std::fopen("/proc/self/statm", "r");
  ASSERT_TRUE(file);
  ASSERT_EQ(std::fscanf(file, "%zu", &pages), 1);
  std::fclose(file);
  const rlim_t bytes = pages * 4096 + spare;
  const rlimit limit{bytes, bytes};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
}

constexpr std::size_t kLittle = 4 << 20;

/// Libraries are loaded at the first call into them; one that does not fit into memory ends the process.
void loadLibrariesOfWriters() {
  const auto small = Bitmap::make(2, 2);
  ASSERT_TRUE(small);
  EXPECT_TRUE(encodePng(*small) && encodePdf(*small) && encodeTiff(*small));
  EXPECT_TRUE(encodeGif(*small) && encodeJpeg2000(*small));
}

TEST(ShortMemory, WritersGiveNothing) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not live with a limit";
  EXPECT_TRUE(testing::inChild([] {
    const auto wide = Bitmap::make(1 << 23, 2);
    const auto large = Bitmap::make(4096, 4096);
    ASSERT_TRUE(wide && large);
    loadLibrariesOfWriters();
    limitMemory(kLittle);
    EXPECT_FALSE(encodePng(*wide));
    EXPECT_FALSE(encodePdf(*wide));
    EXPECT_FALSE(encodeBmp(*wide));
    EXPECT_FALSE(encodeTiff(*wide));
    EXPECT_FALSE(encodeGif(*large));
    EXPECT_FALSE(encodeJpeg2000(*large));
    EXPECT_FALSE(Bitmap::make(4096, 4096));
  }));
}

TEST(ShortMemory, FillingNeedsNone) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not live with a limit";
  EXPECT_TRUE(testing::inChild([] {
    const auto wide = Bitmap::make(1 << 23, 2);
    ASSERT_TRUE(wide);
    limitMemory(kLittle);
    DrawingContext(*wide).fill({0, 0, 1 << 23, 2}, {1, 1, 1, 1});
    EXPECT_EQ(wide->row(1)[4 * ((1 << 23) - 1)], 255);
  }));
}

TEST(ShortMemory, AFileThatDoesNotFitIsNoPicture) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not live with a limit";
  const testing::ScratchFolder folder;
  const std::string path = folder.write("large.bmp", "BM");
  ASSERT_EQ(truncate(path.c_str(), 1 << 26), 0);  // holes cost no room
  EXPECT_TRUE(testing::inChild([&] {
    limitMemory(kLittle);
    EXPECT_FALSE(Picture::load(path));
  }));
}

}  // namespace
}  // namespace vistrelle::platform
