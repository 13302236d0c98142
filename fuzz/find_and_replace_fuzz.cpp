// The first two bytes give the lengths of the search and of the replacement, which follow; the rest is the text.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/text/text.h"

namespace {

/// One pass over valid UTF-8, as simple as it can be written.
std::string onePass(const std::string& text, const std::string& search, const std::string& replacement) {
  if (search.empty()) return text;
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, search.size(), search) == 0) {
      result += replacement;
      i += search.size();
    } else {
      result += text[i++];
    }
  }
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  if (size < 2) return 0;
  std::string rest(reinterpret_cast<const char*>(data) + 2, size - 2);
  const auto take = [&rest](std::size_t length) {
    std::string piece = rest.substr(0, length);
    rest.erase(0, length);
    return piece;
  };
  const std::string search = take(data[0] % 16);
  const std::string replacement = take(data[1] % 16);
  const std::string once = *vistrelle::findAndReplace(rest, search, replacement, false);
  const bool valid = vistrelle::platform::isValidUtf8(search);
  if (valid) require(once == onePass(rest, search, replacement));
  const bool safe = replacement.find(search) == std::string::npos;
  // Pairs that may grow up to the bound are slow: one in eight is enough.
  if (safe && replacement.size() > search.size() && data[0] < 0xE0) return 0;
  const std::string repeated = *vistrelle::findAndReplace(rest, search, replacement, true);
  const bool bounded = repeated.size() > (std::size_t{1} << 20);
  if (valid && safe && !search.empty() && !bounded) require(repeated.find(search) == std::string::npos);
  return 0;
}
