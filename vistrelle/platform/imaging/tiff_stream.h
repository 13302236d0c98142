#pragma once

#include <tiffio.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace vistrelle::platform {

struct TiffDeleter {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffDeleter>;

/// A TIFF in memory: written to `written`, or read from `data`.
struct TiffStream {
  std::vector<std::uint8_t> written;
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
  std::size_t place = 0;
};

/// Nothing is printed, whatever the file holds. The stream must outlive the handle.
TiffHandle openTiff(TiffStream& stream, bool forWriting);

}  // namespace vistrelle::platform
