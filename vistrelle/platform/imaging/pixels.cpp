#include <algorithm>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {

Data dataOf(EncodedBytes bytes) {
  const auto* start = reinterpret_cast<const std::byte*>(bytes.data());
  return Data(start, start + bytes.size());
}

void premultiply(std::uint8_t* rgba, std::size_t pixels) {
  for (std::size_t i = 0; i < pixels; ++i, rgba += 4) {
    if (rgba[3] == 255) continue;
    for (int part = 0; part < 3; ++part) rgba[part] = static_cast<std::uint8_t>((rgba[part] * rgba[3] + 127) / 255);
  }
}

void unpremultiply(const std::uint8_t* row, int pixels, std::uint8_t* rgba) {
  for (int i = 0; i < pixels; ++i, row += 4, rgba += 4) {
    const int alpha = row[3];
    rgba[3] = row[3];
    for (int part = 0; part < 3; ++part) {
      rgba[part] = alpha == 0 ? std::uint8_t{0}
                              : static_cast<std::uint8_t>(std::min(255, (row[part] * 255 + alpha / 2) / alpha));
    }
  }
}

void onBlack(const std::uint8_t* row, int pixels, std::uint8_t* rgb) {
  for (int i = 0; i < pixels; ++i, row += 4, rgb += 3) std::copy_n(row, 3, rgb);
}

}  // namespace vistrelle::platform
