#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/text/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto styled = vistrelle::htmlEntityDecode(text);
  if (!silenced || !styled) std::abort();
  if (text.find('&') == std::string::npos) {
    if (styled->text != text) std::abort();
    return 0;
  }
  if (!vistrelle::platform::isValidUtf8(styled->text)) std::abort();
  const auto lineEnds = std::count(text.begin(), text.end(), '\n');
  if (std::count(styled->text.begin(), styled->text.end(), '\n') < lineEnds) std::abort();
  for (const auto& run : styled->runs) {
    if (run.start + run.length > styled->text.size()) std::abort();
  }
  return 0;
}
