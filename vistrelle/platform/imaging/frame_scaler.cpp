#include "vistrelle/platform/imaging/frame_scaler.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/imaging/resampler.h"

namespace vistrelle::platform {
namespace {

// Beyond this the scaler falls back on two passes.
constexpr int kMostShrinking = 48;
constexpr std::size_t kRowAlignment = 32;  // samples; the scaler's vector code writes whole vectors

struct ScalerDeleter {
  void operator()(SwsContext* context) const { sws_freeContext(context); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

/// Place of the first chroma sample from the first luma sample, in 1/256 of a luma pixel (128: between two).
struct ChromaPlace {
  int x;
  int y;
};

ChromaPlace chromaPlace(const PlanarImage& image) {
  switch (image.chromaLocation) {
    case AVCHROMA_LOC_CENTER:
      return {128, 128};
    case AVCHROMA_LOC_TOPLEFT:
      return {0, 0};
    case AVCHROMA_LOC_TOP:
      return {128, 0};
    case AVCHROMA_LOC_BOTTOMLEFT:
      return {0, 256};
    case AVCHROMA_LOC_BOTTOM:
      return {128, 256};
    case AVCHROMA_LOC_LEFT:
      return {0, 128};
    default:
      // JPEG and its kin centre their chroma.
      return image.layout.starts_with("yuvj") ? ChromaPlace{128, 128} : ChromaPlace{0, 128};
  }
}

/// Moved into a window that starts between two chroma samples.
int placeInWindow(int place, int shift, int start) {
  return place - 256 * (start % (1 << shift));
}

/// The scaler takes -513 and below, and -1, for "unknown".
bool isPlaceable(int place) {
  return place > -513 && place != -1;
}

std::array<const std::uint8_t*, 4> cornerOf(const PlanarImage& image, const AVPixFmtDescriptor& descriptor,
                                            const PixelWindow& window) {
  std::array<const std::uint8_t*, 4> corner{};
  for (std::size_t plane = 0; plane < 4; ++plane) corner[plane] = image.planes[plane].data;
  if (window.x == 0 && window.y == 0) return corner;
  std::array<bool, 4> moved{};
  for (int component = 0; component < descriptor.nb_components; ++component) {
    const auto& place = descriptor.comp[component];
    const auto plane = static_cast<std::size_t>(place.plane);
    if (moved[plane]) continue;
    moved[plane] = true;
    const bool isChroma = component == 1 || component == 2;
    const int x = isChroma ? window.x >> descriptor.log2_chroma_w : window.x;
    const int y = isChroma ? window.y >> descriptor.log2_chroma_h : window.y;
    corner[plane] += std::ptrdiff_t{y} * image.planes[plane].rowBytes + std::ptrdiff_t{x} * place.step;
  }
  return corner;
}

struct FrameDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using BorrowedFrame = std::unique_ptr<AVFrame, FrameDeleter>;

/// A frame over planes that somebody else owns and keeps. The scaler would copy planes without a buffer.
template <typename Data>
BorrowedFrame borrow(const std::array<Data*, 4>& planes, const std::array<int, 4>& rowBytes, int format, int width,
                     int height) {
  BorrowedFrame frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->format = format;
  frame->width = width;
  frame->height = height;
  for (std::size_t plane = 0; plane < 4; ++plane) {
    frame->data[plane] = const_cast<std::uint8_t*>(planes[plane]);
    frame->linesize[plane] = rowBytes[plane];
  }
  const auto keep = [](void*, std::uint8_t*) {};
  frame->buf[0] = av_buffer_create(frame->data[0], 1, keep, nullptr, 0);
  return frame->buf[0] == nullptr ? nullptr : std::move(frame);
}

Scaler makeScaler(const PlanarImage& image, const FrameLayout& layout, const PixelWindow& window, int width, int height,
                  AVPixelFormat target) {
  Scaler scaler(sws_alloc_context());
  if (!scaler) return nullptr;
  const auto set = [&](const char* name, std::int64_t value) { av_opt_set_int(scaler.get(), name, value, 0); };
  set("srcw", window.width);
  set("srch", window.height);
  set("src_format", layout.format);
  set("dstw", width);
  set("dsth", height);
  set("dst_format", target);
  set("threads", threadsFor(std::int64_t{width} * height));
  set("sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT);
  av_opt_set_double(scaler.get(), "param0", 0, 0);
  av_opt_set_double(scaler.get(), "param1", kCubicSharpness, 0);
  // The same range on both sides: samples are only scaled here, our own conversion knows their meaning.
  set("src_range", layout.fullRange ? 1 : 0);
  set("dst_range", layout.fullRange ? 1 : 0);
  const ChromaPlace place = chromaPlace(image);
  if (layout.chromaShiftX > 0) set("src_h_chr_pos", placeInWindow(place.x, layout.chromaShiftX, window.x));
  if (layout.chromaShiftY > 0) set("src_v_chr_pos", placeInWindow(place.y, layout.chromaShiftY, window.y));
  if (sws_init_context(scaler.get(), nullptr, nullptr) < 0) return nullptr;
  const int range = layout.fullRange ? 1 : 0;
  const int* table = sws_getCoefficients(SWS_CS_DEFAULT);
  sws_setColorspaceDetails(scaler.get(), table, range, table, range, 0, 1 << 16, 1 << 16);
  return scaler;
}

}  // namespace

bool canScaleWindow(const FrameLayout& layout, const PlanarImage& image, const PixelWindow& window, int width,
                    int height) {
  if (layout.isRgb || window.width < 1 || window.height < 1) return false;
  if (window.width / kMostShrinking > width || window.height / kMostShrinking > height) return false;
  const bool whole = window.x == 0 && window.y == 0;
  const ChromaPlace place = chromaPlace(image);
  return whole || (layout.croppable && isPlaceable(placeInWindow(place.x, layout.chromaShiftX, window.x)) &&
                   isPlaceable(placeInWindow(place.y, layout.chromaShiftY, window.y)));
}

std::optional<FullPlanes> scaleFrame(const PlanarImage& image, const FrameLayout& layout, const PixelWindow& window,
                                     int width, int height) {
  const AVPixelFormat target = layout.hasAlpha ? AV_PIX_FMT_YUVA444P16LE : AV_PIX_FMT_YUV444P16LE;
  const auto& descriptor = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(layout.format));
  const Scaler scaler = makeScaler(image, layout, window, width, height, target);
  if (!scaler) return std::nullopt;

  FullPlanes result;
  result.width = width;
  result.height = height;
  result.hasAlpha = layout.hasAlpha;
  result.rowSamples = (static_cast<std::size_t>(width) + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
  const std::size_t planes = layout.hasAlpha ? 4 : 3;
  result.samples = largeMemory(sizeof(std::uint16_t) *
                               (planes * static_cast<std::size_t>(height) * result.rowSamples + kRowAlignment));
  if (!result.samples) return std::nullopt;

  std::array<std::uint8_t*, 4> out{};
  std::array<int, 4> outBytes{};
  for (std::size_t plane = 0; plane < planes; ++plane) {
    out[plane] = reinterpret_cast<std::uint8_t*>(const_cast<std::uint16_t*>(result.row(plane, 0)));
    outBytes[plane] = static_cast<int>(result.rowSamples * sizeof(std::uint16_t));
  }
  const auto in = cornerOf(image, descriptor, window);
  std::array<int, 4> inBytes{};
  for (std::size_t plane = 0; plane < 4; ++plane) inBytes[plane] = image.planes[plane].rowBytes;
  const BorrowedFrame source = borrow(in, inBytes, layout.format, window.width, window.height);
  const BorrowedFrame scaled = borrow(out, outBytes, target, width, height);
  // Frames and not plain planes: only with them the scaler uses its threads.
  if (!source || !scaled || sws_scale_frame(scaler.get(), scaled.get(), source.get()) < 0) return std::nullopt;
  return result;
}

std::optional<PlanarImage> withoutPattern(const PlanarImage& image, const FrameLayout& layout) {
  // The scaler reads patterns of even sizes only; a last odd row or column is left out.
  const int width = image.width & ~1;
  const int height = image.height & ~1;
  // Of 8 bits it makes 16 only in name.
  const auto format = static_cast<AVPixelFormat>(layout.format);
  const bool isWide = av_get_bits_per_pixel(av_pix_fmt_desc_get(format)) > 8;
  const AVPixelFormat target = isWide ? AV_PIX_FMT_RGB48LE : AV_PIX_FMT_RGB24;
  const Scaler scaler(
      sws_getContext(width, height, format, width, height, target, SWS_POINT, nullptr, nullptr, nullptr));
  if (!scaler || width < 2 || height < 2) return std::nullopt;
  const std::size_t rowBytes = static_cast<std::size_t>(width) * (isWide ? 6 : 3) + kRowAlignment;
  auto bytes = std::make_shared<std::vector<std::uint8_t>>(rowBytes * static_cast<std::size_t>(height));
  const std::uint8_t* const in[4] = {image.planes[0].data};
  const int inBytes[4] = {image.planes[0].rowBytes};
  std::uint8_t* const out[4] = {bytes->data()};
  const int outBytes[4] = {static_cast<int>(rowBytes)};
  if (sws_scale(scaler.get(), in, inBytes, 0, height, out, outBytes) != height) return std::nullopt;
  PlanarImage result = image;
  result.layout = isWide ? "rgb48le" : "rgb24";
  result.width = width;
  result.height = height;
  result.visible.width = std::min(result.visible.width, width - result.visible.x);
  result.visible.height = std::min(result.visible.height, height - result.visible.y);
  result.planes = {};
  result.planes[0] = {bytes->data(), static_cast<int>(rowBytes)};
  result.owner = bytes;
  return result;
}

}  // namespace vistrelle::platform
