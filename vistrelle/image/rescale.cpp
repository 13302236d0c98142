#include "vistrelle/image/rescale.h"

#include <cmath>
#include <limits>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/image/export.h"
#include "vistrelle/image/formats.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle {
namespace {

using platform::Bitmap;
using platform::CompositeOperation;
using platform::DrawingContext;
using platform::DrawingRect;
using platform::Picture;

constexpr double kPointsPerInch = 72.0;
/// Far beyond any raster, near enough that sums of such numbers stay whole numbers.
constexpr std::int64_t kHuge = std::int64_t{1} << 60;

/// Toward zero. A ratio can be infinite or not a number (a size of 0): such sizes are refused by the raster later.
template <typename Real>
std::int64_t truncated(Real value) {
  if (std::isnan(value)) return 0;
  if (value >= static_cast<Real>(kHuge)) return kHuge;
  if (value <= -static_cast<Real>(kHuge)) return -kHuge;
  return static_cast<std::int64_t>(value);
}

struct Size {
  std::int64_t width = 0;
  std::int64_t height = 0;
};

enum class Ratio { smaller, larger };

/// The numbers of a mode that keeps the aspect ratio.
struct Scaling {
  Size source;
  Size destination;
  float factor = 0;
  Size scaled;
};

Size sizeOf(const Picture& picture) {
  return {truncated(picture.width()), truncated(picture.height())};
}

/// Logs the picture's size and the ratio. On a tie the vertical ratio is taken.
Scaling scalingOf(const Picture& picture, std::int64_t width, std::int64_t height, Ratio which) {
  Scaling scaling;
  scaling.source = sizeOf(picture);
  scaling.destination = {width, height};
  const auto [sourceWidth, sourceHeight] = scaling.source;
  logVerbose("img size : {} x {}", sourceWidth, sourceHeight);
  const float across = static_cast<float>(sourceWidth) / static_cast<float>(width);
  const float down = static_cast<float>(sourceHeight) / static_cast<float>(height);
  const bool acrossWins = which == Ratio::smaller ? across < down : across > down;
  const float factor = acrossWins ? across : down;
  scaling.factor = factor;
  scaling.scaled.width = truncated(static_cast<float>(sourceWidth) / factor);
  scaling.scaled.height = truncated(static_cast<float>(sourceHeight) / factor);
  logVerbose("f={:f}, src = {} x {} -> dst = {} x {}", factor, sourceWidth, sourceHeight, scaling.scaled.width,
             scaling.scaled.height);
  return scaling;
}

void logRaster(const std::shared_ptr<Bitmap>& raster) {
  if (isVerbose()) log("rep={}", raster ? raster->description() : "(null)");
}

/// A raster of that many pixels, its point size set by `dpi`.
std::shared_ptr<Bitmap> makeRaster(Size pixels, double dpi, bool logged) {
  auto raster = Bitmap::make(pixels.width, pixels.height);
  if (logged) {
    logRaster(raster);
    logRaster(raster);  // twice, as it has always been
  }
  if (raster) {
    raster->setPointSize(static_cast<double>(pixels.width) * kPointsPerInch / dpi,
                         static_cast<double>(pixels.height) * kPointsPerInch / dpi);
  }
  if (logged) logRaster(raster);
  return raster;
}

// Also what is not a number: it could not be stamped.
double usableDpi(double dpi) {
  return dpi > 0 && std::isfinite(dpi) ? dpi : kPointsPerInch;
}

DrawingRect rectOf(Size size) {
  return {0, 0, static_cast<double>(size.width), static_cast<double>(size.height)};
}
DrawingRect pointsOf(const Bitmap& raster) {
  return {0, 0, raster.pointWidth(), raster.pointHeight()};
}

void fillBlack(DrawingContext& context, Size size, bool transparentCapable) {
  if (!transparentCapable) context.fill(rectOf(size), platform::Colour{0, 0, 0, 1});
}

std::shared_ptr<Bitmap> drawn(DrawingContext& context, std::shared_ptr<Bitmap> raster, const Picture& picture,
                              const DrawingRect& destination, const DrawingRect& source, bool transparentCapable) {
  const auto operation = transparentCapable ? CompositeOperation::destinationOver : CompositeOperation::sourceOver;
  if (!context.draw(picture, destination, source, operation, 1.0F)) return nullptr;
  return raster;
}

float asSingle(std::int64_t value) {
  return static_cast<float>(value);
}

/// The length of the source that cropFill shows along one axis.
std::int64_t croppedLength(std::int64_t scaled, float offset, float factor, double dpi) {
  const auto whole = static_cast<double>(truncated(asSingle(scaled) * factor));
  const auto cut = static_cast<double>(truncated(2 * offset * factor));
  return truncated(whole * dpi / kPointsPerInch + cut * dpi / kPointsPerInch);
}

/// The part of the source that fills the box, in the picture's pixels.
DrawingRect cropOf(const Scaling& scaling, double dpi) {
  const auto [dstWidth, dstHeight] = scaling.destination;
  const float offsetY = asSingle((dstHeight - scaling.scaled.height) / 2);
  const float offsetX = asSingle((dstWidth - scaling.scaled.width) / 2);
  const std::int64_t sourceY = truncated(offsetY * scaling.factor);
  const std::int64_t sourceX = truncated(offsetX * scaling.factor);
  const std::int64_t height = croppedLength(scaling.scaled.height, offsetY, scaling.factor, dpi);
  const std::int64_t width = croppedLength(scaling.scaled.width, offsetX, scaling.factor, dpi);
  logVerbose("dstOffset={:.0f}:{:.0f} (dst={}*{}) -> srcOffset={}:{} (src={}*{})", offsetX, offsetY, dstWidth,
             dstHeight, sourceX, sourceY, width, height);
  return {static_cast<double>(-sourceX), static_cast<double>(-sourceY), static_cast<double>(width),
          static_cast<double>(height)};
}

/// Where letterbox draws: the offset is turned into points, the size is not. Intended; at 72 dpi both agree.
DrawingRect boxOf(const Scaling& scaling, double dpi) {
  const auto [dstWidth, dstHeight] = scaling.destination;
  const auto offset = [dpi](std::int64_t rest) {
    return static_cast<float>(static_cast<double>(asSingle(rest / 2)) * kPointsPerInch / dpi);
  };
  const float y = offset(dstHeight - scaling.scaled.height);
  const float x = offset(dstWidth - scaling.scaled.width);
  logVerbose("dstOffset={:.0f}:{:.0f} (dst={}*{})", x, y, dstWidth, dstHeight);
  logVerbose("{}:{}:{}:{}", truncated(x), truncated(y), scaling.scaled.width, scaling.scaled.height);
  return {static_cast<double>(truncated(x)), static_cast<double>(truncated(y)),
          static_cast<double>(scaling.scaled.width), static_cast<double>(scaling.scaled.height)};
}

std::shared_ptr<Bitmap> rescaled(std::int64_t modeInt, const std::shared_ptr<const Picture>& picture, Size size,
                                 bool transparentCapable, double dpi) {
  switch (modeInt) {
    case 2:
      return cropFill(picture, size.width, size.height, transparentCapable, dpi);
    case 1:
      return letterbox(picture, size.width, size.height, transparentCapable, dpi);
    case 0:
      return stretch(picture, size.width, size.height, transparentCapable, dpi);
    case -1:
      return fitCanvas(picture, size.width, size.height, transparentCapable, dpi);
    case -2:
      return coverCanvas(picture, size.width, size.height, transparentCapable, dpi);
    default:
      return nullptr;
  }
}

}  // namespace

std::shared_ptr<Bitmap> cropFill(const std::shared_ptr<const Picture>& picture, std::int64_t width, std::int64_t height,
                                 bool transparentCapable, double dpi) {
  if (!picture) return nullptr;
  const Scaling scaling = scalingOf(*picture, width, height, Ratio::smaller);
  dpi = usableDpi(dpi);
  auto raster = makeRaster(scaling.destination, dpi, true);
  if (!raster) return nullptr;
  DrawingContext context(*raster);
  fillBlack(context, scaling.destination, transparentCapable);
  return drawn(context, raster, *picture, rectOf(scaling.destination), cropOf(scaling, dpi), transparentCapable);
}

std::shared_ptr<Bitmap> letterbox(const std::shared_ptr<const Picture>& picture, std::int64_t width,
                                  std::int64_t height, bool transparentCapable, double dpi) {
  if (!picture) return nullptr;
  const Scaling scaling = scalingOf(*picture, width, height, Ratio::larger);
  dpi = usableDpi(dpi);
  auto raster = makeRaster(scaling.destination, dpi, true);
  if (!raster) return nullptr;
  DrawingContext context(*raster);
  fillBlack(context, scaling.destination, transparentCapable);
  const DrawingRect source{0, 0, static_cast<double>(scaling.source.width) * dpi / kPointsPerInch,
                           static_cast<double>(scaling.source.height) * dpi / kPointsPerInch};
  return drawn(context, raster, *picture, boxOf(scaling, dpi), source, transparentCapable);
}

std::shared_ptr<Bitmap> stretch(const std::shared_ptr<const Picture>& picture, std::int64_t width, std::int64_t height,
                                bool transparentCapable, double dpi) {
  if (!picture) return nullptr;
  auto raster = makeRaster({width, height}, usableDpi(dpi), false);
  if (!raster) return nullptr;
  DrawingContext context(*raster);
  fillBlack(context, {width, height}, transparentCapable);
  return drawn(context, raster, *picture, pointsOf(*raster), DrawingRect{}, transparentCapable);
}

std::shared_ptr<Bitmap> fitCanvas(const std::shared_ptr<const Picture>& picture, std::int64_t width,
                                  std::int64_t height, bool transparentCapable, double dpi) {
  if (!picture) return nullptr;
  const Scaling scaling = scalingOf(*picture, width, height, Ratio::larger);
  auto raster = makeRaster(scaling.scaled, usableDpi(dpi), false);
  if (!raster) return nullptr;
  DrawingContext context(*raster);
  fillBlack(context, scaling.destination, transparentCapable);
  return drawn(context, raster, *picture, pointsOf(*raster), rectOf(scaling.source), transparentCapable);
}

std::shared_ptr<Bitmap> coverCanvas(const std::shared_ptr<const Picture>& picture, std::int64_t width,
                                    std::int64_t height, bool transparentCapable, double dpi) {
  if (!picture) return nullptr;
  const Scaling scaling = scalingOf(*picture, width, height, Ratio::smaller);
  dpi = usableDpi(dpi);
  auto raster = makeRaster(scaling.scaled, dpi, true);
  if (!raster) return nullptr;
  DrawingContext context(*raster);
  // The requested box and 4 more, not the raster: what exceeds it keeps a transparent band at the top or right.
  // Intended.
  constexpr std::int64_t kMargin = 4;
  fillBlack(context, {width + kMargin, height + kMargin}, transparentCapable);
  const auto sourceLength = [&](std::int64_t scaled) {
    return static_cast<double>(asSingle(scaled) * scaling.factor) * dpi / kPointsPerInch;
  };
  const DrawingRect source{0, 0, sourceLength(scaling.scaled.width), sourceLength(scaling.scaled.height)};
  return drawn(context, raster, *picture, rectOf(scaling.scaled), source, transparentCapable);
}

bool imgRescale(const platform::OptionalValue& source, const platform::OptionalText& destination, std::int64_t width,
                std::int64_t height, std::int64_t modeInt, double dpi, float quality) {
  const auto* path = source ? source->get<std::string>() : nullptr;
  const auto* object = source ? source->get<std::shared_ptr<const platform::Opaque>>() : nullptr;
  auto picture = object ? std::dynamic_pointer_cast<const Picture>(*object) : nullptr;
  logVerbose("imgRescale          - deb, srcPathStrOrImg = path ? {}, image ? {}", path != nullptr, picture != nullptr);
  if (!path && !picture) return false;
  if (path) {
    const bool present = testPresenceCocoa(*source);
    logVerbose("imgRescale src path :-{} {}", mood(present), *path);
    if (!present) return false;
    picture = Picture::load(platform::expandingTilde(*path));
  }
  if (!picture || !picture->isValid()) return false;
  const Size size = sizeOf(*picture);
  logVerbose("imgRescale          : size = {} x {}", size.width, size.height);
  const bool transparentCapable = destination && keepsTransparency(pictureFormat(*destination));
  const auto raster = rescaled(modeInt, picture, {width, height}, transparentCapable, dpi);
  logVerbose("imgRescale          :-{} modeInt={}", mood(raster != nullptr), modeInt);
  if (!raster) return false;
  return imgExport(raster, destination, quality);
}

std::optional<std::pair<std::int64_t, std::int64_t>> imgSizes(const platform::OptionalText& path) {
  if (!path) return std::nullopt;
  const bool present = testPresenceCocoa(platform::Value(*path));
  logVerbose("imgSizes - deb  : {} = {}", *path, present);
  if (!present) return std::nullopt;
  const auto picture = Picture::load(platform::expandingTilde(*path));
  if (!picture || !picture->isValid()) return std::nullopt;
  const Size size = sizeOf(*picture);
  return std::pair(size.width, size.height);
}

}  // namespace vistrelle
