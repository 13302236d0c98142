
#include <cmath>
#include <csetjmp>
#include <cstdlib>
#include <memory>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/icc_profile.h"
#include "vistrelle/platform/imaging/jpeg_library.h"

namespace vistrelle::platform {
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf back;
};

[[noreturn]] void leave(j_common_ptr codec) {
  std::longjmp(reinterpret_cast<ErrorManager*>(codec->err)->back, 1);
}
void keepQuiet(j_common_ptr /*codec*/) {}

struct Job {
  const Bitmap& raster;
  int quality;
  jpeg_compress_struct codec{};
  ErrorManager errors{};
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
};

void configure(Job& job) {
  jpeg_compress_struct& codec = job.codec;
  codec.image_width = static_cast<JDIMENSION>(job.raster.width());
  codec.image_height = static_cast<JDIMENSION>(job.raster.height());
  // The raster's colour is multiplied by alpha: leaving alpha out lays it on black.
  codec.input_components = 4;
  codec.in_color_space = JCS_EXT_RGBX;
  jpeg_set_defaults(&codec);  // BT.601 full range, 4:2:0, standard Huffman tables
  jpeg_set_quality(&codec, job.quality, TRUE);
  const double dpi = std::round(job.raster.dpi());
  codec.density_unit = 1;
  codec.X_density = codec.Y_density = static_cast<UINT16>(std::fmin(std::fmax(dpi, 1), 65535));
}

/// The library leaves by longjmp: nothing in here may own anything.
bool compress(Job& job) {
  if (setjmp(job.errors.back) != 0) return false;
  jpeg_create_compress(&job.codec);
  jpeg_mem_dest(&job.codec, &job.bytes, &job.size);
  configure(job);
  jpeg_start_compress(&job.codec, TRUE);
  const auto profile = srgbProfile();
  if (!profile.empty()) {
    jpeg_write_icc_profile(&job.codec, profile.data(), static_cast<unsigned int>(profile.size()));
  }
  while (job.codec.next_scanline < job.codec.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(job.raster.row(static_cast<int>(job.codec.next_scanline)));
    jpeg_write_scanlines(&job.codec, &row, 1);
  }
  jpeg_finish_compress(&job.codec);
  return true;
}

}  // namespace

EncodedPicture encodeJpeg(const Bitmap& raster, int quality) {
  if (raster.width() > kMaxSide16 || raster.height() > kMaxSide16) return std::nullopt;
  Job job{raster, quality};
  job.codec.err = jpeg_std_error(&job.errors.base);
  job.errors.base.error_exit = leave;
  job.errors.base.output_message = keepQuiet;
  try {
    srgbProfile();  // made here for the first time, if at all: nothing may throw below the library's jumps
    const bool good = compress(job);
    jpeg_destroy_compress(&job.codec);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owner(job.bytes, &std::free);
    if (!good) return std::nullopt;
    return dataOf({job.bytes, job.size});
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
