#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

struct BatchOptions {
  std::size_t jobs = 1;
  std::uint64_t memoryBytes = 0;
  std::chrono::milliseconds timeout{0};
  platform::OptionalText report;  ///< a new file
  platform::OptionalText resume;  ///< a file to go on with
  std::string list = "-";
  bool isVerbose = false;
  bool wantsHelp = false;
  bool wantsVersion = false;
};

/// The options of a command line (without the program's name); nothing with an error text when it cannot be meant.
std::optional<BatchOptions> readBatchOptions(const std::vector<std::string>& arguments, std::string* error);

const char* batchUsage();

}  // namespace vistrelle
