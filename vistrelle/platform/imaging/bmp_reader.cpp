#include <algorithm>
#include <array>
#include <bit>
#include <new>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

// Layouts as documented for the Windows GDI: BITMAPCOREHEADER and BITMAPINFOHEADER with its successors.
constexpr std::size_t kFileHeader = 14;
constexpr std::uint32_t kCoreHeader = 12;
constexpr std::uint32_t kInfoHeader = 40;
constexpr std::uint32_t kHeaderWithAlphaMask = 56;
constexpr std::uint32_t kUncompressed = 0;
constexpr std::uint32_t kBitFields = 3;

std::uint32_t read(EncodedBytes bytes, std::size_t at, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value |= static_cast<std::uint32_t>(bytes[at + i]) << (8 * i);
  return value;
}

/// Where one component stands in a pixel.
struct Mask {
  std::uint32_t bits = 0;
  std::uint8_t value(std::uint32_t pixel) const {
    if (bits == 0) return 0;
    const int shift = std::countr_zero(bits);
    const std::uint64_t most = bits >> shift;
    return static_cast<std::uint8_t>((((pixel & bits) >> shift) * std::uint64_t{255} + most / 2) / most);
  }
};

struct Layout {
  std::int64_t width = 0;
  std::int64_t height = 0;
  bool topDown = false;
  std::uint32_t depth = 0;
  std::size_t pixels = 0;      ///< where they begin
  std::size_t palette = 0;     ///< where it begins
  std::size_t entryBytes = 4;  ///< of the palette
  std::size_t entries = 0;
  std::array<Mask, 4> masks{};  ///< red, green, blue, alpha
};

bool readCore(EncodedBytes bytes, Layout& layout) {
  layout.width = read(bytes, 18, 2);
  layout.height = read(bytes, 20, 2);
  layout.depth = read(bytes, 24, 2);
  layout.palette = kFileHeader + kCoreHeader;
  layout.entryBytes = 3;
  return true;
}

bool readInfo(EncodedBytes bytes, std::uint32_t headerSize, Layout& layout) {
  if (bytes.size() < kFileHeader + headerSize) return false;
  layout.width = static_cast<std::int32_t>(read(bytes, 18, 4));
  layout.height = static_cast<std::int32_t>(read(bytes, 22, 4));
  layout.topDown = layout.height < 0;
  layout.height = layout.topDown ? -layout.height : layout.height;
  layout.depth = read(bytes, 28, 2);
  layout.palette = kFileHeader + headerSize;
  const std::uint32_t compression = read(bytes, 30, 4);
  if (compression == kUncompressed) {
    layout.masks = layout.depth == 16 ? std::array<Mask, 4>{Mask{0x7C00}, Mask{0x03E0}, Mask{0x001F}, Mask{}}
                                      : std::array<Mask, 4>{Mask{0xFF0000}, Mask{0xFF00}, Mask{0xFF}, Mask{}};
    return true;
  }
  if (compression != kBitFields || (layout.depth != 16 && layout.depth != 32)) return false;
  const std::size_t masks = kFileHeader + kInfoHeader;  // behind the old header, or inside a newer one
  const std::size_t count = headerSize >= kHeaderWithAlphaMask ? 4 : 3;
  if (bytes.size() < masks + 4 * count) return false;
  for (std::size_t i = 0; i < count; ++i) layout.masks[i].bits = read(bytes, masks + 4 * i, 4);
  return true;
}

bool readLayout(EncodedBytes bytes, Layout& layout) {
  if (bytes.size() < kFileHeader + kCoreHeader) return false;
  layout.pixels = read(bytes, 10, 4);
  const std::uint32_t headerSize = read(bytes, 14, 4);
  const bool isCore = headerSize == kCoreHeader;
  if (!isCore && (headerSize < kInfoHeader || headerSize > bytes.size())) return false;
  if (isCore) layout.masks = {Mask{0xFF0000}, Mask{0xFF00}, Mask{0xFF}, Mask{}};
  if (!(isCore ? readCore(bytes, layout) : readInfo(bytes, headerSize, layout))) return false;
  const std::uint32_t depth = layout.depth;
  if (depth != 1 && depth != 4 && depth != 8 && depth != 16 && depth != 24 && depth != 32) return false;
  if (depth > 8) return true;
  const std::uint32_t used = isCore ? 0 : read(bytes, 46, 4);
  const std::uint32_t most = 1U << depth;
  layout.entries = used == 0 || used > most ? most : used;
  return layout.palette + layout.entries * layout.entryBytes <= bytes.size();
}

/// Blue, green and red of a palette entry stand like those of a 24-bit pixel.
std::uint32_t pixelAt(EncodedBytes bytes, const Layout& layout, std::size_t row, std::size_t x) {
  if (layout.depth > 8) return read(bytes, row + x * layout.depth / 8, layout.depth / 8);
  const std::size_t bit = x * layout.depth;
  const std::uint32_t index = bytes[row + bit / 8] >> (8 - layout.depth - bit % 8) & ((1U << layout.depth) - 1);
  if (index >= layout.entries) return 0;
  return read(bytes, layout.palette + index * layout.entryBytes, 3);
}

}  // namespace

std::shared_ptr<Bitmap> decodeBmp(EncodedBytes bytes) {
  Layout layout;
  if (!readLayout(bytes, layout)) return nullptr;
  const auto width = static_cast<std::size_t>(std::max<std::int64_t>(layout.width, 0));
  const auto height = static_cast<std::size_t>(std::max<std::int64_t>(layout.height, 0));
  const std::size_t rowBytes = (width * layout.depth + 31) / 32 * 4;
  if (layout.pixels > bytes.size() || width == 0 || height == 0 || (bytes.size() - layout.pixels) / rowBytes < height) {
    return nullptr;
  }
  auto bitmap = Bitmap::make(layout.width, layout.height);
  if (!bitmap) return nullptr;
  for (std::size_t y = 0; y < height; ++y) {
    const std::size_t row = layout.pixels + rowBytes * (layout.topDown ? y : height - 1 - y);
    std::uint8_t* target = bitmap->row(static_cast<int>(y));
    for (std::size_t x = 0; x < width; ++x, target += 4) {
      const std::uint32_t pixel = pixelAt(bytes, layout, row, x);
      for (std::size_t part = 0; part < 3; ++part) target[part] = layout.masks[part].value(pixel);
      target[3] = layout.masks[3].bits != 0 ? layout.masks[3].value(pixel) : std::uint8_t{255};
    }
  }
  premultiply(bitmap->row(0), width * height);
  return bitmap;
}

}  // namespace vistrelle::platform
