#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support.h"
#include "vistrelle/text/numbers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  const float ratio = vistrelle::fractionStr2Float(std::string(reinterpret_cast<const char*>(data), size));
  if (!silenced || std::abs(static_cast<double>(ratio)) < 0.1) std::abort();
  if (vistrelle::float2FractionStr(ratio).find(':') == std::string::npos) std::abort();
  return 0;
}
