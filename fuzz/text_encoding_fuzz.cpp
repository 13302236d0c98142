// Text in any encoding: what can be read is valid, can be written again, and then reads the same.

#include <array>
#include <cstdint>

#include "fuzz/support.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/text/encoding.h"

namespace {

using namespace vistrelle::platform;

constexpr std::array<EncodingNumber, 25> kEncodings{
    1,  2,  3,  4,  5,     6,          7,          8,          9,          10,          11, 12, 13,
    14, 15, 21, 30, 65536, 0x80000506, 0x90000100, 0x94000100, 0x98000100, kNoEncoding, 0,  99};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const EncodingNumber encoding = kEncodings[data[0] % kEncodings.size()];
  const std::string_view bytes = asText(data + 1, size - 1);

  const EncodingNumber detected = detectEncoding(bytes);
  if (detected != kNoEncoding) require(decodeText(bytes, detected).has_value());

  if (const auto text = decodeText(bytes, encoding)) {
    require(isValidUtf8(*text));
    // A mark that is part of the text comes back as the mark before it.
    const bool beginsWithMark = text->starts_with("\xEF\xBB\xBF");
    const auto written = encodeText(*text, encoding, false);
    if (written && !beginsWithMark) {
      const auto again = decodeText(*written, encoding);
      require(again.has_value() && *again == *text);
    }
  }
  // The same bytes as a text of ours: with losses every encoding takes every valid text.
  const auto lossy = encodeText(bytes, encoding, true);
  const bool isKnown = encodeText("", encoding, false).has_value();
  require(lossy.has_value() == isKnown);
  if (lossy) require(decodeText(*lossy, encoding).has_value() || !isValidUtf8(bytes));
  return 0;
}
