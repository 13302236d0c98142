#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support.h"
#include "vistrelle/text/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const float value = vistrelle::str2Float(text);
  if (!silenced || std::isnan(value)) std::abort();
  // Blanks and letters before the number change nothing.
  if (vistrelle::str2Float(" x " + text) != value) std::abort();
  vistrelle::str2FloatInner(text);
  vistrelle::progressValueAfter(text, "time=");
  vistrelle::progressValueAfter(text, "(batch ");
  return 0;
}
