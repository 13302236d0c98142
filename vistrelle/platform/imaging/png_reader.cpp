#include <png.h>

#include <cstring>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {

std::shared_ptr<Bitmap> decodePng(EncodedBytes bytes) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) return nullptr;
  auto bitmap = Bitmap::make(image.width, image.height);
  if (!bitmap) {
    png_image_free(&image);
    return nullptr;
  }
  image.format = PNG_FORMAT_RGBA;
  // Releases what it allocated, whether it succeeds or not.
  if (!png_image_finish_read(&image, nullptr, bitmap->row(0), 0, nullptr)) return nullptr;
  premultiply(bitmap->row(0), static_cast<std::size_t>(bitmap->width()) * static_cast<std::size_t>(bitmap->height()));
  return bitmap;
}

}  // namespace vistrelle::platform
