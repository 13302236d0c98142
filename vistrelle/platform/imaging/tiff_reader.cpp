#include <algorithm>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/tiff_stream.h"

namespace vistrelle::platform {
namespace {

bool canBeRead(TIFF* tiff) {
  char reason[1024] = "";
  return TIFFRGBAImageOK(tiff, reason) == 1;
}

/// What there is to decode in all. Tiles may be far wider than the picture, rows may have thousands of samples a pixel,
/// and any number of them may name the same few bytes.
bool isWithinLimits(TIFF* tiff) {
  constexpr std::uint64_t kMostBytes = std::uint64_t{Bitmap::kMaxPixels} * 8;  // four samples of 16 bits
  const bool isTiled = TIFFIsTiled(tiff) != 0;
  const std::uint64_t piece = isTiled ? TIFFTileSize64(tiff) : TIFFStripSize64(tiff);
  const std::uint64_t count = isTiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  return piece > 0 && count <= kMostBytes / piece;
}

}  // namespace

std::shared_ptr<Bitmap> decodeTiff(EncodedBytes bytes) {
  try {
    TiffStream stream;
    stream.data = bytes.data();
    stream.size = bytes.size();
    const TiffHandle tiff = openTiff(stream, false);
    if (!tiff || !canBeRead(tiff.get()) || !isWithinLimits(tiff.get())) return nullptr;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width) != 1 ||
        TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height) != 1) {
      return nullptr;
    }
    auto bitmap = Bitmap::make(width, height);
    if (!bitmap) return nullptr;
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * height);
    // Colour comes out multiplied by alpha, whichever way the file has it.
    if (TIFFReadRGBAImageOriented(tiff.get(), width, height, pixels.data(), ORIENTATION_TOPLEFT, 1) != 1)
      return nullptr;
    std::uint8_t* target = bitmap->row(0);
    for (const std::uint32_t pixel : pixels) {
      const auto alpha = static_cast<std::uint8_t>(TIFFGetA(pixel));
      *target++ = std::min(static_cast<std::uint8_t>(TIFFGetR(pixel)), alpha);
      *target++ = std::min(static_cast<std::uint8_t>(TIFFGetG(pixel)), alpha);
      *target++ = std::min(static_cast<std::uint8_t>(TIFFGetB(pixel)), alpha);
      *target++ = alpha;
    }
    return bitmap;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace vistrelle::platform
