#include "vistrelle/platform/media/ffmpeg/track_shape.h"

#include <algorithm>
#include <cmath>

#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"

namespace vistrelle::platform {
namespace {

/// Thousandths tell all sizes apart that 16.16 in whole pixels and usual ratios can give.
mov::Fraction fractionOf(double value) {
  constexpr int kLargest = 1 << 24;
  const AVRational fraction = av_d2q(value, kLargest);
  return {fraction.num, fraction.den > 0 ? fraction.den : 1};
}

mov::PixelAspect pixelAspectIn(const mov::TrackApertures& apertures) {
  constexpr int kLargest = 10000;
  const double aspect =
      apertures.production.width * apertures.encoded.height / (apertures.production.height * apertures.encoded.width);
  const AVRational fraction = av_d2q(aspect, kLargest);
  if (fraction.num <= 0 || fraction.den <= 0) return {};
  return {static_cast<std::uint32_t>(fraction.num), static_cast<std::uint32_t>(fraction.den)};
}

std::optional<mov::CleanAperture> cleanApertureIn(const mov::TrackApertures& apertures) {
  const mov::FixedSize& clean = apertures.clean;
  const mov::FixedSize& production = apertures.production;
  if (clean.width >= production.width && clean.height >= production.height) return std::nullopt;
  mov::CleanAperture aperture;
  aperture.width = fractionOf(apertures.encoded.width * std::min(1.0, clean.width / production.width));
  aperture.height = fractionOf(apertures.encoded.height * std::min(1.0, clean.height / production.height));
  return aperture;
}

}  // namespace

TrackShape shapeOf(const mov::Track& track) {
  TrackShape shape{track.cleanAperture, track.pixelAspect};
  if (!track.apertures) return shape;
  if (!shape.pixelAspect) shape.pixelAspect = pixelAspectIn(*track.apertures);
  if (!shape.cleanAperture) shape.cleanAperture = cleanApertureIn(*track.apertures);
  return shape;
}

Rect cleanRect(const std::optional<mov::CleanAperture>& aperture, int width, int height) {
  if (!aperture) return {0, 0, static_cast<double>(width), static_cast<double>(height)};
  const PixelRect rect = visibleRect(*aperture, width, height);
  return {rect.x, rect.y, rect.width, rect.height};
}

Size presentationSize(const Rect& visible, AVRational pixelAspect) {
  const bool isStated = pixelAspect.num > 0 && pixelAspect.den > 0;
  const double aspect = isStated ? av_q2d(pixelAspect) : 1;
  return {std::max(1.0, std::round(visible.width * aspect)), std::max(1.0, std::round(visible.height))};
}

}  // namespace vistrelle::platform
