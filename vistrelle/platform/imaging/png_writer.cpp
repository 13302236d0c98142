#include <png.h>

#include <cmath>
#include <csetjmp>
#include <new>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

constexpr double kInchesPerMetre = 100 / 2.54;
constexpr int kCompression = 4;  // a third of the default level's time for a few per cent of size on photographs

struct Job {
  const Bitmap& raster;
  Data data;
  std::vector<std::uint8_t> row;
  bool outOfMemory = false;
};

void append(png_structp png, png_bytep bytes, png_size_t count) {
  auto* job = static_cast<Job*>(png_get_io_ptr(png));
  try {
    const auto* start = reinterpret_cast<const std::byte*>(bytes);
    job->data.insert(job->data.end(), start, start + count);
  } catch (const std::bad_alloc&) {
    job->outOfMemory = true;
  }
  if (job->outOfMemory) png_error(png, "out of memory");
}

void flush(png_structp /*png*/) {}
[[noreturn]] void leave(png_structp png, png_const_charp /*message*/) {
  png_longjmp(png, 1);
}
void keepQuiet(png_structp /*png*/, png_const_charp /*message*/) {}

/// The library leaves by longjmp: nothing in here may own anything.
bool write(png_structp png, png_infop info, Job& job) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  const auto width = static_cast<png_uint_32>(job.raster.width());
  const auto height = static_cast<png_uint_32>(job.raster.height());
  png_set_write_fn(png, &job, append, flush);
  png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
  png_set_compression_level(png, kCompression);
  png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  const auto perMetre =
      static_cast<png_uint_32>(std::lround(std::fmin(job.raster.dpi() * kInchesPerMetre, 0x7fffffff)));
  png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
  png_write_info(png, info);
  for (int y = 0; y < job.raster.height(); ++y) {
    unpremultiply(job.raster.row(y), job.raster.width(), job.row.data());
    png_write_row(png, job.row.data());
  }
  png_write_end(png, info);
  return true;
}

}  // namespace

EncodedPicture encodePng(const Bitmap& raster) {
  Job job{raster, {}, {}, false};
  try {
    job.row.resize(raster.rowBytes());
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, leave, keepQuiet);
  if (!png) return std::nullopt;
  png_infop info = png_create_info_struct(png);
  const bool good = info && write(png, info, job);
  png_destroy_write_struct(&png, &info);
  if (!good) return std::nullopt;
  return std::move(job.data);
}

}  // namespace vistrelle::platform
