#include "vistrelle/platform/imaging/processors.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace vistrelle::platform {
namespace {

TEST(Processors, SmallPicturesGetOneThread) {
  EXPECT_EQ(threadsFor(0), 1);
  EXPECT_EQ(threadsFor(160 * 120), 1);
  EXPECT_GE(threadsFor(std::int64_t{1} << 28), 1);
  EXPECT_LE(threadsFor(std::int64_t{1} << 40), 4);
}

TEST(Processors, EveryRowIsDoneOnce) {
  for (const int count : {0, 1, 2, 3, 7, 100}) {
    for (const int threads : {1, 2, 3, 4}) {
      std::vector<std::atomic<int>> rows(static_cast<std::size_t>(count));
      inParts(count, threads, [&rows](int first, int last) {
        for (int row = first; row < last; ++row) ++rows[static_cast<std::size_t>(row)];
      });
      for (const std::atomic<int>& row : rows) EXPECT_EQ(row, 1) << count << " rows, " << threads << " threads";
    }
  }
}

}  // namespace
}  // namespace vistrelle::platform
