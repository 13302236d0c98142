#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

struct GifDeleter {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};
using Gif = std::unique_ptr<GifFileType, GifDeleter>;

int readSome(GifFileType* gif, GifByteType* target, int count) {
  auto& rest = *static_cast<EncodedBytes*>(gif->UserData);
  const std::size_t some = std::min(rest.size(), static_cast<std::size_t>(std::max(count, 0)));
  std::copy_n(rest.data(), some, target);
  rest = rest.subspan(some);
  return static_cast<int>(some);
}

/// Passes an extension; a graphics control block names the transparent index.
bool readExtension(GifFileType* gif, int& transparent) {
  int code = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return false;
  while (block) {
    GraphicsControlBlock control;
    if (code == GRAPHICS_EXT_FUNC_CODE && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
      transparent = control.TransparentColor;
    }
    if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return false;
  }
  return true;
}

/// The next row of an image in the order of the file.
int rowOf(int number, int height, bool interlaced) {
  if (!interlaced) return number;
  static constexpr std::array<std::array<int, 2>, 4> kPasses{{{0, 8}, {4, 8}, {2, 4}, {1, 2}}};
  for (const auto& [start, step] : kPasses) {
    const int rows = height > start ? (height - start + step - 1) / step : 0;
    if (number < rows) return start + number * step;
    number -= rows;
  }
  return height - 1;
}

/// The image just begun, placed on the screen; what it does not cover stays transparent.
bool readImage(GifFileType* gif, Bitmap& bitmap, int transparent) {
  const GifImageDesc& image = gif->Image;
  const ColorMapObject* map = image.ColorMap ? image.ColorMap : gif->SColorMap;
  if (!map || image.Width < 1 || image.Height < 1 || image.Left < 0 || image.Top < 0 ||
      image.Left + image.Width > bitmap.width() || image.Top + image.Height > bitmap.height()) {
    return false;
  }
  std::vector<GifPixelType> line(static_cast<std::size_t>(image.Width));
  for (int number = 0; number < image.Height; ++number) {
    if (DGifGetLine(gif, line.data(), image.Width) == GIF_ERROR) return false;
    std::uint8_t* target =
        bitmap.row(image.Top + rowOf(number, image.Height, image.Interlace)) + static_cast<std::size_t>(image.Left) * 4;
    for (const GifPixelType index : line) {
      if (index >= map->ColorCount) return false;
      if (index != transparent) {
        const GifColorType& colour = map->Colors[index];
        target[0] = colour.Red;
        target[1] = colour.Green;
        target[2] = colour.Blue;
        target[3] = 255;
      }
      target += 4;
    }
  }
  return true;
}

}  // namespace

std::shared_ptr<Bitmap> decodeGif(EncodedBytes bytes) {
  try {
    EncodedBytes rest = bytes;
    const Gif gif(DGifOpen(&rest, readSome, nullptr));
    if (!gif) return nullptr;
    auto bitmap = Bitmap::make(gif->SWidth, gif->SHeight);
    if (!bitmap) return nullptr;
    int transparent = NO_TRANSPARENT_COLOR;
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    while (DGifGetRecordType(gif.get(), &type) == GIF_OK && type != TERMINATE_RECORD_TYPE) {
      if (type == EXTENSION_RECORD_TYPE) {
        if (!readExtension(gif.get(), transparent)) return nullptr;
      } else if (type == IMAGE_DESC_RECORD_TYPE) {
        // The first picture of an animation stands for it.
        const bool good = DGifGetImageDesc(gif.get()) == GIF_OK && readImage(gif.get(), *bitmap, transparent);
        return good ? bitmap : nullptr;
      }
    }
    return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace vistrelle::platform
