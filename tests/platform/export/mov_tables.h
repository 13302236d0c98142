#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>

#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::testing {

/// The tables of a movie in memory, with the samples of its first four tracks.
inline std::optional<platform::mov::MovieTables> tablesIn(std::span<const std::uint8_t> bytes) {
  const auto readAt = [bytes](std::int64_t offset, std::span<std::uint8_t> buffer) {
    const auto left = static_cast<std::size_t>(std::max<std::int64_t>(std::ssize(bytes) - offset, 0));
    const std::size_t count = std::min(left, buffer.size());
    if (count > 0) std::memcpy(buffer.data(), bytes.data() + offset, count);
    return static_cast<std::int64_t>(count);
  };
  return platform::mov::readMovieTables(std::ssize(bytes), readAt, {1, 2, 3, 4});
}

inline platform::mov::MovieTables tablesOf(const std::string& path) {
  const std::string bytes = readFile(path);
  auto tables = tablesIn({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  EXPECT_TRUE(tables);
  return tables ? std::move(*tables) : platform::mov::MovieTables{};
}

}  // namespace vistrelle::testing
