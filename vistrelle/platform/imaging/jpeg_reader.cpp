
#include <csetjmp>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/jpeg_library.h"

namespace vistrelle::platform {
namespace {

// A small progressive file may ask for thousands of passes over a huge picture. Real ones take about ten.
constexpr int kMostScans = 500;
constexpr std::int64_t kMostPixelsOfAllScans = std::int64_t{1} << 32;

struct Job {
  EncodedBytes bytes;
  jpeg_decompress_struct codec{};
  jpeg_error_mgr errors{};
  jpeg_progress_mgr progress{};
  std::jmp_buf back{};
  std::shared_ptr<Bitmap> bitmap;
  std::vector<std::uint8_t> row;
};

[[noreturn]] void leave(j_common_ptr codec) {
  std::longjmp(static_cast<Job*>(codec->client_data)->back, 1);
}
void keepQuiet(j_common_ptr /*codec*/) {}

/// Warnings are tolerated, but for data that ended too early: the rest of the picture would be invented.
void warn(j_common_ptr codec, int level) {
  if (level < 0 && (codec->err->msg_code == JWRN_JPEG_EOF || codec->err->msg_code == JWRN_HIT_MARKER)) leave(codec);
}

void limitScans(j_common_ptr codec) {
  if (!codec->is_decompressor) return;
  const auto* reader = reinterpret_cast<j_decompress_ptr>(codec);
  const std::int64_t pixels = std::int64_t{reader->image_width} * reader->image_height;
  const int scans = reader->input_scan_number;
  if (scans > kMostScans || scans * pixels > kMostPixelsOfAllScans) leave(codec);
}

/// Inks to light; Adobe's files hold inverted inks, which is what the library hands on.
void storeInks(const Job& job, std::uint8_t* target) {
  const bool inverted = job.codec.saw_Adobe_marker != FALSE;
  for (std::size_t x = 0; x < static_cast<std::size_t>(job.bitmap->width()); ++x) {
    const std::uint8_t* inks = &job.row[4 * x];
    const auto light = [inverted](std::uint8_t ink) { return inverted ? ink : 255 - ink; };
    for (int part = 0; part < 3; ++part) {
      target[4 * x + static_cast<std::size_t>(part)] =
          static_cast<std::uint8_t>(light(inks[part]) * light(inks[3]) / 255);
    }
    target[4 * x + 3] = 255;
  }
}

/// The library leaves by longjmp: nothing in here may own anything that the job does not.
bool decompress(Job& job) {
  if (setjmp(job.back) != 0) return false;
  jpeg_decompress_struct& codec = job.codec;
  jpeg_create_decompress(&codec);
  codec.client_data = &job;
  codec.progress = &job.progress;
  jpeg_mem_src(&codec, job.bytes.data(), job.bytes.size());
  if (jpeg_read_header(&codec, TRUE) != JPEG_HEADER_OK) return false;
  const bool inks = codec.num_components == 4;
  codec.out_color_space = inks ? JCS_CMYK : JCS_EXT_RGBA;
  job.bitmap = Bitmap::make(codec.image_width, codec.image_height);
  if (!job.bitmap || !jpeg_start_decompress(&codec)) return false;
  job.row.resize(job.bitmap->rowBytes());
  while (codec.output_scanline < codec.output_height) {
    std::uint8_t* target = job.bitmap->row(static_cast<int>(codec.output_scanline));
    JSAMPROW row = inks ? job.row.data() : target;
    jpeg_read_scanlines(&codec, &row, 1);
    if (inks) storeInks(job, target);
  }
  return jpeg_finish_decompress(&codec) != FALSE;
}

}  // namespace

std::shared_ptr<Bitmap> decodeJpeg(EncodedBytes bytes) {
  Job job;
  job.bytes = bytes;
  job.codec.err = jpeg_std_error(&job.errors);
  job.codec.client_data = &job;
  job.errors.error_exit = leave;
  job.errors.output_message = keepQuiet;
  job.errors.emit_message = warn;
  job.progress.progress_monitor = limitScans;
  bool good = false;
  try {
    good = decompress(job);
  } catch (const std::bad_alloc&) {
  }
  jpeg_destroy_decompress(&job.codec);
  return good ? job.bitmap : nullptr;
}

}  // namespace vistrelle::platform
