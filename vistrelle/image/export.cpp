#include "vistrelle/image/export.h"

#include <cmath>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/image/formats.h"
#include "vistrelle/image/rescale.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/imaging/drawing.h"
#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle {
namespace {

constexpr float kFallbackQuality = 0.9F;
constexpr int kDefaultJpegQuality = 75;
constexpr double kSwatchSide = 100;

int jpegQuality(float quality) {
  const bool usable = quality > 0 && quality <= 1;  // not so for what is not a number
  return static_cast<int>(std::lround((usable ? quality : kFallbackQuality) * 100));
}

platform::EncodedPicture encoded(const platform::Bitmap& raster, PictureFormat format, float quality) {
  switch (format) {
    case PictureFormat::jpegWithQuality:
      return platform::encodeJpeg(raster, jpegQuality(quality));
    case PictureFormat::tiff:
      return platform::encodeTiff(raster);
    case PictureFormat::bmp:
      return platform::encodeBmp(raster);
    case PictureFormat::gif:
      return platform::encodeGif(raster);
    case PictureFormat::png:
      return platform::encodePng(raster);
    case PictureFormat::jpeg2000:
      return platform::encodeJpeg2000(raster);
    case PictureFormat::pdf:
      return platform::encodePdf(raster);
    case PictureFormat::jpeg:
      break;
  }
  return platform::encodeJpeg(raster, kDefaultJpegQuality);
}

bool write(const platform::EncodedPicture& bytes, const std::string& path) {
  if (!bytes) return false;
  return platform::fileManager().get()->writeInPlace(platform::expandingTilde(path), *bytes).ok();
}

std::shared_ptr<const platform::Picture> pictureOfColour(const platform::Colour& colour) {
  auto raster = platform::Bitmap::make(static_cast<std::int64_t>(kSwatchSide), static_cast<std::int64_t>(kSwatchSide));
  if (!raster) return nullptr;
  platform::DrawingContext(*raster).fill({0, 0, kSwatchSide, kSwatchSide}, colour);
  return std::make_shared<platform::Picture>(std::move(raster));
}

}  // namespace

bool imgExport(const std::shared_ptr<const platform::Bitmap>& raster, const platform::OptionalText& path,
               float quality) {
  if (!raster || !path) return false;
  const PictureFormat format = pictureFormat(*path);
  const bool written = write(encoded(*raster, format, quality), *path);
  if (format == PictureFormat::pdf) {
    log("imgSaveAs…pdf       :-{} '{}'", mood(written), *path);
    return written;
  }
  // Not whether it was written counts but whether a file is there; an older one that could not be replaced does.
  logVerbose("imgExport - end");
  const bool isThere = testPresenceCocoa(platform::Value(*path));
  if (!written && isThere) log("imgExport           :-/ not written, what was there stays : {}", *path);
  return isThere;
}

bool imgFillColor(const std::optional<platform::Colour>& colour, const platform::OptionalText& path, std::int64_t width,
                  std::int64_t height) {
  if (!colour) return false;
  constexpr double kDpi = 72;
  return imgExport(stretch(pictureOfColour(*colour), width, height, false, kDpi), path, 1.0F);
}

bool imgColorSwatchPng(const std::optional<platform::Colour>& colour, const platform::OptionalText& path,
                       std::int64_t width, std::int64_t height, float opacity) {
  if (!colour || !path) return false;
  const auto picture = pictureOfColour(*colour);
  const auto raster = platform::Bitmap::make(width, height);
  if (picture && raster) {
    platform::DrawingContext context(*raster);
    const float fraction = opacity > 0 ? std::fmin(opacity, 1.0F) : 0.0F;
    context.draw(*picture, {0, 0, static_cast<double>(width), static_cast<double>(height)},
                 {0, 0, kSwatchSide, kSwatchSide}, platform::CompositeOperation::destinationOver, fraction);
    write(platform::encodePng(*raster), *path);
  }
  return testPresenceCocoa(platform::Value(*path));
}

}  // namespace vistrelle
