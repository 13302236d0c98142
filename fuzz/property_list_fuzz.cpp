// Property lists, binary and XML: what could be read can be written and reads the same.

#include <cmath>
#include <cstdint>

#include "fuzz/support.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/preferences/property_list.h"

namespace {

using namespace vistrelle::platform;

bool isText(const std::string& text) {
  return isValidUtf8(text);
}

// Comparing what is no number with itself says nothing, the binary form keeps dates within some centuries only, and
// bytes of a text that are not UTF-8 are written as U+FFFD.
bool comparesExactly(const Value& value) {
  if (const auto* text = value.get<std::string>()) return isText(*text);
  if (const auto* number = value.get<double>()) return !std::isnan(*number);
  if (const auto* number = value.get<float>()) return !std::isnan(*number);
  if (value.get<Date>() != nullptr) return false;
  if (const auto* list = value.get<List>()) return std::ranges::all_of(*list, comparesExactly);
  if (const auto* dictionary = value.get<Dictionary>()) {
    return std::ranges::all_of(*dictionary,
                               [](const auto& entry) { return isText(entry.first) && comparesExactly(entry.second); });
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  PropertyListLimits limits;
  limits.values = 20'000;
  const PropertyListReading reading = readPropertyList(asText(data, size), limits);
  require(reading.value.has_value() == reading.error.empty());
  if (!reading.value) return 0;
  require(!description(*reading.value).empty() || reading.value->get<std::string>() != nullptr ||
          reading.value->get<Data>() != nullptr);
  const PropertyListWriting writing = writeBinaryPropertyList(*reading.value);
  require(writing.bytes.has_value());
  const PropertyListReading again = readPropertyList(*writing.bytes);
  require(again.value.has_value());
  if (comparesExactly(*reading.value)) require(*again.value == *reading.value);
  return 0;
}
