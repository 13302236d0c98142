#include <algorithm>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/icc_profile.h"
#include "vistrelle/platform/imaging/tiff_stream.h"

namespace vistrelle::platform {
namespace {

bool write(TIFF* tiff, const Bitmap& raster) {
  const std::uint16_t extra = EXTRASAMPLE_ASSOCALPHA;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(raster.width()));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(raster.height()));
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 4);
  TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  TIFFSetField(tiff, TIFFTAG_XRESOLUTION, raster.dpi());
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, raster.dpi());
  const auto profile = srgbProfile();
  if (!profile.empty()) {
    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(profile.size()), profile.data());
  }
  std::vector<std::uint8_t> row(raster.rowBytes());
  for (int y = 0; y < raster.height(); ++y) {
    std::copy_n(raster.row(y), row.size(), row.begin());  // the library may change what it is given
    if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) != 1) return false;
  }
  return TIFFFlush(tiff) == 1;
}

}  // namespace

EncodedPicture encodeTiff(const Bitmap& raster) {
  // Offsets have 32 bits; the rest is room for tags, profile and strip tables.
  constexpr std::uint64_t kMostPixelBytes = UINT32_MAX - (1 << 26);
  if (raster.rowBytes() * static_cast<std::uint64_t>(raster.height()) > kMostPixelBytes) return std::nullopt;
  try {
    TiffStream stream;
    {
      const TiffHandle tiff = openTiff(stream, true);
      if (!tiff || !write(tiff.get(), raster)) return std::nullopt;
    }
    return dataOf(stream.written);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
