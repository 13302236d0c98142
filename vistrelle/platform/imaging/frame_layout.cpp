#include "vistrelle/platform/imaging/frame_layout.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace vistrelle::platform {
namespace {

constexpr int kRangeLimited = 1;
constexpr int kRangeFull = 2;
constexpr std::string_view kFullRangePrefix = "yuvj";

bool isPresentable(double width, double height) {
  return std::isfinite(width) && std::isfinite(height) && width > 0 && height > 0 &&
         width * height <= static_cast<double>(Bitmap::kMaxPixels);
}

bool showsSomething(const PlanarImage& image) {
  const PixelRect& visible = image.visible;
  return std::isfinite(visible.x) && std::isfinite(visible.y) && visible.width > 0 && visible.height > 0 &&
         visible.x >= 0 && visible.y >= 0 && visible.x + visible.width <= image.width + 1e-6 &&
         visible.y + visible.height <= image.height + 1e-6;
}

bool hasAllPlanes(const PlanarImage& image, AVPixelFormat format, const AVPixFmtDescriptor& descriptor) {
  const int planes = av_pix_fmt_count_planes(format);
  if (planes < 1) return false;
  for (int plane = 0; plane < planes; ++plane) {
    const auto& given = image.planes[static_cast<std::size_t>(plane)];
    const int needed = av_image_get_linesize(format, image.width, plane);
    if (!given.data || needed < 0 || std::abs(given.rowBytes) < needed) return false;
  }
  return (descriptor.flags & AV_PIX_FMT_FLAG_PAL) == 0 || image.planes[1].data;
}

bool packsSubsampledChroma(const AVPixFmtDescriptor& descriptor) {
  return descriptor.nb_components >= 3 && descriptor.log2_chroma_w > 0 &&
         descriptor.comp[0].plane == descriptor.comp[1].plane;
}

}  // namespace

std::optional<FrameLayout> frameLayout(const PlanarImage& image) {
  std::string name = image.layout;
  const bool fullByName = name.starts_with(kFullRangePrefix);
  if (fullByName) name.erase(kFullRangePrefix.size() - 1, 1);
  const AVPixelFormat format = av_get_pix_fmt(name.c_str());
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
  if (!descriptor || (descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0) return std::nullopt;
  const bool isFloat = (descriptor->flags & AV_PIX_FMT_FLAG_FLOAT) != 0;
  const bool isForeign = ((descriptor->flags & AV_PIX_FMT_FLAG_BE) != 0) != (std::endian::native == std::endian::big);
  if (isFloat && (descriptor->comp[0].depth != 32 || isForeign)) return std::nullopt;

  constexpr std::uint64_t kRgb = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL;
  FrameLayout layout;
  layout.format = format;
  layout.isXyz = name.starts_with("xyz");
  layout.isFloat = isFloat;
  layout.isBayer = (descriptor->flags & AV_PIX_FMT_FLAG_BAYER) != 0;
  layout.isRgb = (descriptor->flags & kRgb) != 0 || layout.isXyz || isFloat;
  layout.isGray = !layout.isRgb && descriptor->nb_components < 3;
  layout.hasAlpha = (descriptor->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL)) != 0;
  const bool fullByDefault = fullByName || layout.isRgb || layout.isGray;
  layout.fullRange = layout.isXyz || isFloat || image.colour.range == kRangeFull ||
                     (image.colour.range != kRangeLimited && fullByDefault);
  layout.croppable = !packsSubsampledChroma(*descriptor) && (descriptor->flags & AV_PIX_FMT_FLAG_BITSTREAM) == 0;
  layout.depth = descriptor->comp[0].depth;
  layout.chromaShiftX = descriptor->log2_chroma_w;
  layout.chromaShiftY = descriptor->log2_chroma_h;
  return layout;
}

bool isDrawable(const PlanarImage& image) {
  const auto layout = frameLayout(image);
  if (!layout || image.width < 1 || image.height < 1) return false;
  if (std::int64_t{image.width} * image.height > Bitmap::kMaxPixels) return false;
  if (!isPresentable(image.presentationWidth, image.presentationHeight) || !showsSomething(image)) return false;
  const auto format = static_cast<AVPixelFormat>(layout->format);
  return hasAllPlanes(image, format, *av_pix_fmt_desc_get(format));
}

}  // namespace vistrelle::platform
