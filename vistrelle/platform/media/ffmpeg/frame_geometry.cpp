#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "vistrelle/platform/media/ffmpeg/av_version.h"

namespace vistrelle::platform {

namespace {

// SMPTE 356M: the lines of vertical blanking that are recorded with the picture.
constexpr int kBlankingLines = 32;

double valueOf(const mov::Fraction& fraction) {
  return fraction.denominator == 0 ? 0 : static_cast<double>(fraction.numerator) / fraction.denominator;
}

std::uint8_t tag(int value, std::uint8_t fallback) {
  const bool isStated = value > 0 && value < 256 && value != 2;
  return isStated ? static_cast<std::uint8_t>(value) : fallback;
}

ColourTags coloursOf(const AVFrame& frame, std::string_view layout, const ColourTags& container) {
  ColourTags tags;
  tags.primaries = tag(frame.color_primaries, container.primaries);
  tags.transfer = tag(frame.color_trc, container.transfer);
  // Code point 0 (no matrix: RGB) says something only of RGB planes.
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const bool isRgb = descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
  tags.matrix = isRgb ? std::uint8_t{0} : tag(frame.colorspace, container.matrix);
  tags.range =
      frame.color_range == AVCOL_RANGE_UNSPECIFIED ? container.range : static_cast<std::uint8_t>(frame.color_range);
  if (layout.starts_with("yuvj")) tags.range = AVCOL_RANGE_JPEG;
  return tags;
}

double pixelAspectOf(const AVFrame& frame, AVRational container) {
  for (const AVRational aspect : {container, frame.sample_aspect_ratio}) {
    if (aspect.num > 0 && aspect.den > 0) return av_q2d(aspect);
  }
  return 1;
}

std::optional<Orientation> orientationInFrame(const AVFrame& frame) {
  const AVFrameSideData* data = av_frame_get_side_data(&frame, AV_FRAME_DATA_DISPLAYMATRIX);
  std::array<std::int32_t, 9> matrix{};
  if (data == nullptr || data->size < sizeof matrix) return std::nullopt;
  std::memcpy(matrix.data(), data->data, sizeof matrix);
  return orientationOfMatrix(matrix);
}

}  // namespace

Orientation orientationOfMatrix(std::span<const std::int32_t> matrix) {
  if (matrix.size() < 9) return {};
  // x' = a x + c y, y' = b x + d y, with y downwards; stored as a b u c d v x y w.
  double a = matrix[0];
  double b = matrix[1];
  const double c = matrix[3];
  const double d = matrix[4];
  Orientation orientation;
  orientation.mirrored = a * d - b * c < 0;
  if (orientation.mirrored) {
    a = -a;
    b = -b;
  }
  // What is left is a rotation: either column tells it, and their sum also when one of them is damaged.
  const double cosine = a + d;
  const double sine = b - c;
  if (std::abs(cosine) >= std::abs(sine)) {
    orientation.quarterTurnsClockwise = cosine < 0 ? 2 : 0;
  } else {
    orientation.quarterTurnsClockwise = sine > 0 ? 1 : 3;
  }
  return orientation;
}

PixelRect visibleRect(const mov::CleanAperture& aperture, int width, int height) {
  const double shownWidth = valueOf(aperture.width);
  const double shownHeight = valueOf(aperture.height);
  const double left = (width - shownWidth) / 2 + valueOf(aperture.horizontalOffset);
  const double top = (height - shownHeight) / 2 + valueOf(aperture.verticalOffset);
  PixelRect rect;
  rect.x = std::max(0.0, left);
  rect.y = std::max(0.0, top);
  rect.width = std::min<double>(width, left + shownWidth) - rect.x;
  rect.height = std::min<double>(height, top + shownHeight) - rect.y;
  const bool isSensible = shownWidth >= 1 && shownHeight >= 1 && rect.width >= 1 && rect.height >= 1;
  return isSensible ? rect : PixelRect{0, 0, static_cast<double>(width), static_cast<double>(height)};
}

PlanarImage planarImage(const std::shared_ptr<const AVFrame>& frame, const FrameShape& shape, ApertureMode mode,
                        bool appliesOrientation) {
  PlanarImage image;
  const char* layout = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame->format));
  image.layout = layout == nullptr ? "" : layout;
  image.width = frame->width;
  image.height = frame->height;
  for (std::size_t i = 0; i < image.planes.size(); ++i) image.planes[i] = {frame->data[i], frame->linesize[i]};
  image.visible = {0, 0, static_cast<double>(frame->width), static_cast<double>(frame->height)};
  if (mode == ApertureMode::cleanAperture && shape.cleanAperture) {
    image.visible = visibleRect(*shape.cleanAperture, frame->width, frame->height);
  } else if (mode == ApertureMode::cleanAperture && shape.linesBelowBlanking > 0 &&
             frame->height == shape.linesBelowBlanking + kBlankingLines) {
    image.visible.y = kBlankingLines;
    image.visible.height = shape.linesBelowBlanking;
  }
  image.colour = coloursOf(*frame, image.layout, shape.colour);
  image.chromaLocation = frame->chroma_location;
  if (appliesOrientation) {
    image.orientation = shape.orientation ? *shape.orientation : orientationInFrame(*frame).value_or(Orientation{});
  }
  const double aspect = mode == ApertureMode::encodedPixels ? 1 : pixelAspectOf(*frame, shape.pixelAspect);
  image.presentationWidth = std::max(1.0, std::round(image.visible.width * aspect));
  image.presentationHeight = std::max(1.0, std::round(image.visible.height));
  image.interlaced = isInterlaced(*frame);
  image.topFieldFirst = isTopFieldFirst(*frame);
  image.owner = frame;
  return image;
}

}  // namespace vistrelle::platform
