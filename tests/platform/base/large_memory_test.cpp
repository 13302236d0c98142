#include "vistrelle/platform/base/large_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace vistrelle::platform {
namespace {

TEST(LargeMemory, IsZeroedAndWritableToItsLastByte) {
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{4095}, std::size_t{4097}, std::size_t{1} << 21,
                                  (std::size_t{1} << 21) + 1, std::size_t{7'000'001}}) {
    const LargeMemory memory = largeMemory(bytes);
    ASSERT_TRUE(memory) << bytes;
    EXPECT_EQ(std::count(memory.get(), memory.get() + bytes, 0), static_cast<std::ptrdiff_t>(bytes));
    std::fill_n(memory.get(), bytes, std::uint8_t{0xA5});
    EXPECT_EQ(memory[bytes - 1], 0xA5);
  }
}

TEST(LargeMemory, BeginsAtAPageAndLargePiecesAtALargeOne) {
  const auto rest = [](const LargeMemory& memory, std::uintptr_t unit) {
    return reinterpret_cast<std::uintptr_t>(memory.get()) % unit;
  };
  std::vector<LargeMemory> pieces;  // kept, so that each stands elsewhere
  for (int i = 0; i < 8; ++i) {
    pieces.push_back(largeMemory(100));
    EXPECT_EQ(rest(pieces.back(), 4096), 0U);
    pieces.push_back(largeMemory(3'000'000));
    EXPECT_EQ(rest(pieces.back(), std::uintptr_t{1} << 21), 0U);
  }
}

TEST(LargeMemory, IsZeroedAgainAfterItWasGivenBack) {
  for (int i = 0; i < 4; ++i) {
    const LargeMemory memory = largeMemory(5'000'000);
    ASSERT_TRUE(memory);
    EXPECT_TRUE(std::all_of(memory.get(), memory.get() + 5'000'000, [](std::uint8_t byte) { return byte == 0; }));
    std::fill_n(memory.get(), 5'000'000, std::uint8_t{1});
  }
}

TEST(LargeMemory, IsEmptyWhereThereCannotBeSoMuch) {
  EXPECT_FALSE(largeMemory(0));
  EXPECT_FALSE(largeMemory(std::numeric_limits<std::size_t>::max()));
  EXPECT_FALSE(largeMemory(std::numeric_limits<std::size_t>::max() / 2));
}

}  // namespace
}  // namespace vistrelle::platform
