#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/icc_profile.h"
#include "vistrelle/platform/imaging/palette.h"

namespace vistrelle::platform {
namespace {

struct GifDeleter {
  void operator()(GifFileType* gif) const { EGifCloseFile(gif, nullptr); }
  void operator()(ColorMapObject* map) const { GifFreeMapObject(map); }
};
using Gif = std::unique_ptr<GifFileType, GifDeleter>;
using ColourMap = std::unique_ptr<ColorMapObject, GifDeleter>;

constexpr int kMostSubBlock = 255;

int append(GifFileType* gif, const GifByteType* bytes, int count) {
  auto* data = static_cast<Data*>(gif->UserData);
  try {
    const auto* start = reinterpret_cast<const std::byte*>(bytes);
    data->insert(data->end(), start, start + count);
    return count;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

ColourMap colourMap(const IndexedPicture& picture) {
  ColourMap map(GifMakeMapObject(1 << GifBitSize(static_cast<int>(picture.colours.size())), nullptr));
  if (!map) return nullptr;
  for (std::size_t i = 0; i < picture.colours.size(); ++i) {
    map->Colors[i] = {picture.colours[i][0], picture.colours[i][1], picture.colours[i][2]};
  }
  return map;
}

/// The application extension of ICC.1:2001-04, annex B.
bool putProfile(GifFileType* gif) {
  static constexpr char kApplication[] = "ICCRGBG1012";
  const auto profile = srgbProfile();
  if (EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
      EGifPutExtensionBlock(gif, 11, kApplication) == GIF_ERROR) {
    return false;
  }
  for (std::size_t start = 0; start < profile.size(); start += kMostSubBlock) {
    const std::size_t size = std::min<std::size_t>(kMostSubBlock, profile.size() - start);
    if (EGifPutExtensionBlock(gif, static_cast<int>(size), profile.data() + start) == GIF_ERROR) return false;
  }
  return EGifPutExtensionTrailer(gif) == GIF_OK;
}

bool putTransparency(GifFileType* gif, int index) {
  GraphicsControlBlock control{};
  control.DisposalMode = DISPOSAL_UNSPECIFIED;
  control.TransparentColor = index;
  std::array<GifByteType, 4> bytes{};
  const std::size_t size = EGifGCBToExtension(&control, bytes.data());
  return EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(size), bytes.data()) == GIF_OK;
}

bool write(GifFileType* gif, const Bitmap& raster, IndexedPicture& picture) {
  const ColourMap map = colourMap(picture);
  if (!map) return false;
  EGifSetGifVersion(gif, true);
  const int width = raster.width();
  const int height = raster.height();
  if (EGifPutScreenDesc(gif, width, height, map->BitsPerPixel, 0, map.get()) == GIF_ERROR || !putProfile(gif))
    return false;
  if (picture.transparentIndex >= 0 && !putTransparency(gif, picture.transparentIndex)) return false;
  if (EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr) == GIF_ERROR) return false;
  std::uint8_t* row = picture.indices.data();
  for (int y = 0; y < height; ++y, row += width) {
    if (EGifPutLine(gif, row, width) == GIF_ERROR) return false;
  }
  return true;
}

}  // namespace

EncodedPicture encodeGif(const Bitmap& raster) {
  if (raster.width() > kMaxSide16 || raster.height() > kMaxSide16) return std::nullopt;
  try {
    IndexedPicture picture = reduceColours(raster);
    Data data;
    Gif gif(EGifOpen(&data, append, nullptr));
    if (!gif || !write(gif.get(), raster, picture)) return std::nullopt;
    if (EGifCloseFile(gif.release(), nullptr) == GIF_ERROR) return std::nullopt;
    return data;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
