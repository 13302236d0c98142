#include <cmath>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

// BITMAPFILEHEADER and BITMAPV5HEADER as documented for the Windows GDI.
constexpr std::uint32_t kFileHeader = 14;
constexpr std::uint32_t kInfoHeader = 124;
constexpr std::uint32_t kSrgb = 0x73524742;  // LCS_sRGB
constexpr std::uint32_t kImagesIntent = 4;   // LCS_GM_IMAGES
constexpr double kInchesPerMetre = 100 / 2.54;

class LittleEndian {
 public:
  explicit LittleEndian(Data& data) : data_(data) {}
  void put16(std::uint32_t value) { put(value, 2); }
  void put32(std::uint32_t value) { put(value, 4); }
  void putZeros(int count) { data_.insert(data_.end(), static_cast<std::size_t>(count), std::byte{0}); }

 private:
  void put(std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) data_.push_back(static_cast<std::byte>(value >> (8 * i)));
  }
  Data& data_;
};

}  // namespace

EncodedPicture encodeBmp(const Bitmap& raster) {
  const std::uint64_t rowBytes = (static_cast<std::uint64_t>(raster.width()) * 3 + 3) / 4 * 4;
  const std::uint64_t pixelBytes = rowBytes * static_cast<std::uint64_t>(raster.height());
  const std::uint64_t total = kFileHeader + kInfoHeader + pixelBytes;
  if (total > UINT32_MAX) return std::nullopt;
  const auto perMetre = static_cast<std::uint32_t>(std::lround(std::fmin(raster.dpi() * kInchesPerMetre, INT32_MAX)));
  try {
    Data data;
    data.reserve(total);
    LittleEndian out(data);
    out.put16(0x4D42);  // "BM"
    out.put32(static_cast<std::uint32_t>(total));
    out.putZeros(4);
    out.put32(kFileHeader + kInfoHeader);
    out.put32(kInfoHeader);
    out.put32(static_cast<std::uint32_t>(raster.width()));
    out.put32(static_cast<std::uint32_t>(raster.height()));
    out.put16(1);
    out.put16(24);
    out.put32(0);  // BI_RGB
    out.put32(static_cast<std::uint32_t>(pixelBytes));
    out.put32(perMetre);
    out.put32(perMetre);
    out.putZeros(2 * 4);  // no palette
    out.putZeros(4 * 4);  // no masks
    out.put32(kSrgb);
    out.putZeros(36 + 3 * 4);  // end points and gammas go with other colour spaces
    out.put32(kImagesIntent);
    out.putZeros(3 * 4);
    std::vector<std::uint8_t> row(rowBytes);
    for (int y = raster.height() - 1; y >= 0; --y) {
      onBlack(raster.row(y), raster.width(), row.data());
      for (std::size_t x = 0; x < static_cast<std::size_t>(raster.width()); ++x) std::swap(row[3 * x], row[3 * x + 2]);
      const auto* bytes = reinterpret_cast<const std::byte*>(row.data());
      data.insert(data.end(), bytes, bytes + row.size());
    }
    return data;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
