#include "vistrelle/image/formats.h"

#include <array>
#include <string_view>
#include <utility>

#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {
namespace {

constexpr std::array<std::pair<std::string_view, PictureFormat>, 10> kFormats{{{"jpg", PictureFormat::jpegWithQuality},
                                                                               {"jpeg", PictureFormat::jpegWithQuality},
                                                                               {"tif", PictureFormat::tiff},
                                                                               {"tiff", PictureFormat::tiff},
                                                                               {"bmp", PictureFormat::bmp},
                                                                               {"gif", PictureFormat::gif},
                                                                               {"png", PictureFormat::png},
                                                                               {"jp2", PictureFormat::jpeg2000},
                                                                               {"jpx", PictureFormat::jpeg2000},
                                                                               {"pdf", PictureFormat::pdf}}};

}  // namespace

PictureFormat pictureFormat(const std::string& path) {
  const std::string extension = platform::lowercased(platform::pathExtension(path));
  for (const auto& [name, format] : kFormats) {
    if (extension == name) return format;
  }
  return PictureFormat::jpeg;
}

bool keepsTransparency(PictureFormat format) {
  return format == PictureFormat::tiff || format == PictureFormat::gif || format == PictureFormat::png;
}

}  // namespace vistrelle
