#include <algorithm>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/jp2_stream.h"

namespace vistrelle::platform {
namespace {

constexpr std::uint8_t kBoxStart = 0x00;  // a JP2 file starts with a box, a bare code stream with 0xFF4F

/// A component's sample as it belongs to a pixel of the picture, brought to 8 bits.
std::uint8_t sampleAt(const opj_image_comp_t& component, std::uint32_t x, std::uint32_t y) {
  const std::uint32_t column = std::min(x / component.dx, component.w - 1);
  const std::uint32_t row = std::min(y / component.dy, component.h - 1);
  const std::int64_t most = (std::int64_t{1} << component.prec) - 1;
  const std::int64_t value = component.data[static_cast<std::size_t>(row) * component.w + column] +
                             (component.sgnd ? std::int64_t{1} << (component.prec - 1) : 0);
  return static_cast<std::uint8_t>((std::clamp<std::int64_t>(value, 0, most) * 255 + most / 2) / most);
}

void toRgb(std::uint8_t* pixel) {
  const double y = pixel[0];
  const double u = pixel[1] - 128.0;
  const double v = pixel[2] - 128.0;
  const auto byte = [](double value) { return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0) + 0.5); };
  pixel[0] = byte(y + 1.402 * v);
  pixel[1] = byte(y - 0.344136 * u - 0.714136 * v);
  pixel[2] = byte(y + 1.772 * u);
}

bool isReadable(const opj_image_t& image) {
  if (image.numcomps < 1 || image.numcomps > 4 || image.x1 <= image.x0 || image.y1 <= image.y0) return false;
  for (std::uint32_t i = 0; i < image.numcomps; ++i) {
    const opj_image_comp_t& component = image.comps[i];
    if (!component.data || component.w == 0 || component.h == 0 || component.dx == 0 || component.dy == 0 ||
        component.prec < 1 || component.prec > 31) {
      return false;
    }
  }
  return true;
}

std::shared_ptr<Bitmap> bitmapOf(const opj_image_t& image) {
  auto bitmap = Bitmap::make(image.x1 - image.x0, image.y1 - image.y0);
  if (!bitmap) return nullptr;
  const bool isGray = image.numcomps < 3;
  const bool hasAlpha = image.numcomps == 2 || image.numcomps == 4;
  const auto width = static_cast<std::uint32_t>(bitmap->width());
  for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(bitmap->height()); ++y) {
    std::uint8_t* pixel = bitmap->row(static_cast<int>(y));
    for (std::uint32_t x = 0; x < width; ++x, pixel += 4) {
      for (std::uint32_t part = 0; part < 3; ++part) pixel[part] = sampleAt(image.comps[isGray ? 0 : part], x, y);
      if (image.color_space == OPJ_CLRSPC_SYCC && !isGray) toRgb(pixel);
      pixel[3] = hasAlpha ? sampleAt(image.comps[image.numcomps - 1], x, y) : std::uint8_t{255};
    }
  }
  premultiply(bitmap->row(0), static_cast<std::size_t>(bitmap->width()) * static_cast<std::size_t>(bitmap->height()));
  return bitmap;
}

/// Before anything is decoded: what the header asks for. Code blocks without data cost nothing, so that 160 bytes can
/// be a whole picture that takes gigabytes and half a minute: a large one must have at least so much data as even a
/// strongly compressed photograph has.
bool isWithinLimits(const opj_image_t& image, std::size_t bytes) {
  constexpr std::uint64_t kMostSamplesOfAnyFile = std::uint64_t{1} << 27;
  constexpr std::uint64_t kMostSamplesOfAByte = 4096;
  if (image.x1 <= image.x0 || image.y1 <= image.y0 || image.numcomps > 4) return false;
  const std::uint64_t pixels = std::uint64_t{image.x1 - image.x0} * (image.y1 - image.y0);
  if (pixels > static_cast<std::uint64_t>(Bitmap::kMaxPixels)) return false;
  const std::uint64_t samples = pixels * image.numcomps;
  return samples <= kMostSamplesOfAnyFile || samples / kMostSamplesOfAByte <= bytes;
}

}  // namespace

std::shared_ptr<Bitmap> decodeJpeg2000(EncodedBytes bytes) {
  if (bytes.empty()) return nullptr;
  Jp2Memory memory;
  memory.data = bytes.data();
  memory.size = bytes.size();
  const auto stream = openJp2(memory, true);
  const Jp2Codec codec(opj_create_decompress(bytes[0] == kBoxStart ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K));
  if (!stream || !codec) return nullptr;
  silence(codec.get());
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  if (!opj_setup_decoder(codec.get(), &parameters) || !opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE))
    return nullptr;
  opj_image_t* header = nullptr;
  const bool hasHeader = opj_read_header(stream.get(), codec.get(), &header) != OPJ_FALSE;
  const Jp2Image image(header);
  if (!hasHeader || !image || !isWithinLimits(*image, bytes.size())) return nullptr;
  if (!opj_decode(codec.get(), stream.get(), image.get()) || !isReadable(*image)) return nullptr;
  return bitmapOf(*image);
}

}  // namespace vistrelle::platform
