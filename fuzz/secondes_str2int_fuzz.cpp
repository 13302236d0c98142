#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support.h"
#include "vistrelle/text/numbers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  const std::int64_t seconds = vistrelle::secondesStr2Int(std::string(reinterpret_cast<const char*>(data), size));
  if (!silenced) std::abort();
  const std::string written = vistrelle::durationStr(seconds);
  if (seconds >= 0 && vistrelle::secondesStr2Int(written) != seconds) std::abort();
  return 0;
}
