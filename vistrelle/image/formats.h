#pragma once

#include <string>

namespace vistrelle {

/// What a path's extension, lower-cased, makes of a picture.
enum class PictureFormat {
  jpegWithQuality,  ///< "jpg", "jpeg"
  tiff,             ///< "tif", "tiff"
  bmp,
  gif,
  png,
  jpeg2000,  ///< "jp2", "jpx"
  pdf,
  jpeg  ///< any other and none: JPEG at the default quality
};

PictureFormat pictureFormat(const std::string& path);

/// TIFF, GIF and PNG get a transparent background, everything else a black one.
bool keepsTransparency(PictureFormat format);

}  // namespace vistrelle
