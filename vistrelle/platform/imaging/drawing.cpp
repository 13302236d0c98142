#include "vistrelle/platform/imaging/drawing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "vistrelle/platform/imaging/colour_conversion.h"
#include "vistrelle/platform/imaging/deinterlacing.h"
#include "vistrelle/platform/imaging/frame_scaler.h"
#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/imaging/row_sources.h"

namespace vistrelle::platform {
namespace {

constexpr double kRounding = 1e-6;                // what 72 / dpi and back may leave, in pixels
constexpr double kWholePixel = 1.0 / 256;         // a window this near to whole pixels is scaled in one pass
constexpr std::int64_t kOnePassPixels = 1 << 25;  // its full planes stay below 200 MB

double withoutRounding(double value) {
  const double whole = std::round(value);
  return std::fabs(value - whole) < kRounding ? whole : value;
}

bool isWhole(double value) {
  return std::fabs(value - std::round(value)) < kWholePixel;
}

/// One axis while it is worked out: destination in raster pixels, source in the picture's pixels, both downwards or to
/// the right.
struct Span {
  double d0;
  double d1;
  double s0;
  double s1;

  /// Cuts off what lies outside 0..size of the source. False when nothing is left.
  bool cutToSource(double size) {
    const double perSource = (d1 - d0) / (s1 - s0);
    if (s0 < 0) {
      d0 -= s0 * perSource;
      s0 = 0;
    }
    if (s1 > size) {
      d1 -= (s1 - size) * perSource;
      s1 = size;
    }
    return s0 < s1 && d0 < d1;
  }
  bool cutToRaster(double size) {
    const double perPixel = (s1 - s0) / (d1 - d0);
    if (d0 < 0) {
      s0 -= d0 * perPixel;
      d0 = 0;
    }
    if (d1 > size) {
      s1 -= (d1 - size) * perPixel;
      d1 = size;
    }
    return d0 < d1 && s0 < s1;
  }
};

/// One axis of the layer that is drawn: along a row or a column of the source.
struct LayerAxis {
  AxisMap map;
  bool flipped = false;

  LayerAxis() = default;
  explicit LayerAxis(const Span& span) {
    map.d0 = withoutRounding(span.d0);
    map.d1 = withoutRounding(span.d1);
    map.s0 = span.s0;
    map.s1 = span.s1;
    map.first = static_cast<int>(std::floor(map.d0));
    map.last = static_cast<int>(std::ceil(map.d1));
  }

  /// Runs the axis the other way over a source of this length; the pixel range stays.
  void flip(double length) {
    const double sum = map.first + map.last;
    map = {sum - map.d1, sum - map.d0, length - map.s1, length - map.s0, map.first, map.last, map.lowest, map.highest};
    flipped = !flipped;
  }

  /// From the size as presented to the stored samples that are visible.
  void toStored(double presented, double start, double length, int samples) {
    map.s0 = withoutRounding(start + map.s0 * length / presented);
    map.s1 = withoutRounding(start + map.s1 * length / presented);
    map.lowest = std::clamp(static_cast<int>(std::floor(start + kRounding)), 0, samples - 1);
    map.highest = std::clamp(static_cast<int>(std::ceil(start + length - kRounding)) - 1, map.lowest, samples - 1);
  }

  bool isWholePixels() const {
    return map.d0 == map.first && map.d1 == map.last && isWhole(map.s0) && isWhole(map.s1) &&
           std::round(map.s1) > std::round(map.s0);
  }

  /// Place in the layer of a raster pixel counted from `map.first`.
  int place(int index) const { return flipped ? map.count() - 1 - index : index; }
};

/// The picture scaled in the orientation of its source: u along its rows, v down its columns.
struct Layer {
  LayerAxis u;
  LayerAxis v;
  bool swapped = false;  ///< u runs down the raster
  std::vector<std::uint8_t> pixels;
};

Layer layerOf(const PlanarImage& frame, const Span& x, const Span& y) {
  Layer layer;
  const double width = frame.presentationWidth;
  const double height = frame.presentationHeight;
  const int turns = frame.orientation.quarterTurnsClockwise & 3;
  layer.swapped = turns % 2 != 0;
  layer.u = LayerAxis(layer.swapped ? y : x);
  layer.v = LayerAxis(layer.swapped ? x : y);
  if (turns == 2 || turns == 3) layer.u.flip(width);
  if (turns == 1 || turns == 2) layer.v.flip(height);
  if (frame.orientation.mirrored) layer.u.flip(width);
  layer.u.toStored(width, frame.visible.x, frame.visible.width, frame.width);
  layer.v.toStored(height, frame.visible.y, frame.visible.height, frame.height);
  return layer;
}

Layer layerOf(const Bitmap& bitmap, const Span& x, const Span& y) {
  Layer layer;
  layer.u = LayerAxis(x);
  layer.v = LayerAxis(y);
  layer.u.toStored(bitmap.width(), 0, bitmap.width(), bitmap.width());
  layer.v.toStored(bitmap.height(), 0, bitmap.height(), bitmap.height());
  return layer;
}

/// The usual case: whole pixels of the planes to whole pixels of the raster, in one pass of the scaler.
bool renderInOnePass(const PlanarImage& frame, const FrameLayout& layout, const Layer& layer, std::uint8_t* target,
                     std::size_t rowBytes) {
  const AxisMap& u = layer.u.map;
  const AxisMap& v = layer.v.map;
  if (layout.hasAlpha || !layer.u.isWholePixels() || !layer.v.isWholePixels()) return false;
  if (std::int64_t{u.count()} * v.count() > kOnePassPixels) return false;
  const int left = static_cast<int>(std::round(u.s0));
  const int top = static_cast<int>(std::round(v.s0));
  const PixelWindow window{left, top, static_cast<int>(std::round(u.s1)) - left,
                           static_cast<int>(std::round(v.s1)) - top};
  if (!canScaleWindow(layout, frame, window, u.count(), v.count())) return false;
  const auto planes = scaleFrame(frame, layout, window, u.count(), v.count());
  if (!planes) return false;
  const ColourConversion conversion(frame, layout);
  inParts(v.count(), threadsFor(std::int64_t{u.count()} * v.count()), [&](int first, int last) {
    for (int row = first; row < last; ++row) {
      conversion.toRgba8(planes->row(0, row), planes->row(1, row), planes->row(2, row), u.count(),
                         target + static_cast<std::size_t>(row) * rowBytes);
    }
  });
  return true;
}

bool renderPattern(const PlanarImage& frame, const FrameLayout& layout, const Layer& layer, std::uint8_t* target,
                   std::size_t rowBytes) {
  const auto colours = withoutPattern(frame, layout);
  const auto colourLayout = colours ? frameLayout(*colours) : std::nullopt;
  const auto rows = colourLayout ? frameRows(*colours, *colourLayout) : nullptr;
  if (!rows) return false;
  AxisMap u = layer.u.map;
  AxisMap v = layer.v.map;
  u.highest = std::min(u.highest, colours->width - 1);
  v.highest = std::min(v.highest, colours->height - 1);
  resample(*rows, u, v, target, rowBytes);
  return true;
}

bool render(const Picture& picture, const Layer& layer, std::uint8_t* target, std::size_t rowBytes) {
  std::unique_ptr<RowSource> rows;
  PlanarImage frame;  // read by the rows
  if (const PlanarImage* planar = picture.planar()) {
    const auto layout = frameLayout(*planar);
    if (!layout) return false;
    if (layout->isBayer) return renderPattern(*planar, *layout, layer, target, rowBytes);
    frame = deinterlaced(*planar, *layout);
    if (renderInOnePass(frame, *layout, layer, target, rowBytes)) return true;
    rows = frameRows(frame, *layout);
  } else {
    rows = bitmapRows(*picture.bitmap());
  }
  if (!rows) return false;
  resample(*rows, layer.u.map, layer.v.map, target, rowBytes);
  return true;
}

std::uint8_t toByte(float value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0.0F, 255.0F) + 0.5F);
}

/// One pixel onto or beneath another, colours multiplied by alpha; `weight` is fraction times coverage.
void composite(const std::uint8_t* source, std::uint8_t* target, CompositeOperation operation, float weight) {
  const bool beneath = operation == CompositeOperation::destinationOver;
  if (weight == 1 && (beneath ? target[3] == 0 : source[3] == 255)) {
    std::memcpy(target, source, 4);
    return;
  }
  const float sourceShare = beneath ? weight * (1 - static_cast<float>(target[3]) / 255) : weight;
  const float targetShare = beneath ? 1.0F : 1 - static_cast<float>(source[3]) / 255 * weight;
  for (int part = 0; part < 4; ++part) {
    target[part] =
        toByte(static_cast<float>(source[part]) * sourceShare + static_cast<float>(target[part]) * targetShare);
  }
}

void compositeLayer(const Layer& layer, Bitmap& raster, CompositeOperation operation, float fraction) {
  const LayerAxis& x = layer.swapped ? layer.v : layer.u;
  const LayerAxis& y = layer.swapped ? layer.u : layer.v;
  const auto layerWidth = static_cast<std::size_t>(layer.u.map.count());
  std::vector<float> coverage(static_cast<std::size_t>(x.map.count()));
  for (int i = 0; i < x.map.count(); ++i) coverage[static_cast<std::size_t>(i)] = x.map.coverage(x.place(i));
  for (int j = 0; j < y.map.count(); ++j) {
    const float rowWeight = fraction * y.map.coverage(y.place(j));
    std::uint8_t* target = raster.row(y.map.first + j) + static_cast<std::size_t>(x.map.first) * 4;
    for (int i = 0; i < x.map.count(); ++i, target += 4) {
      const auto across = static_cast<std::size_t>(layer.swapped ? y.place(j) : x.place(i));
      const auto down = static_cast<std::size_t>(layer.swapped ? x.place(i) : y.place(j));
      const std::uint8_t* source = layer.pixels.data() + (down * layerWidth + across) * 4;
      composite(source, target, operation, rowWeight * coverage[static_cast<std::size_t>(i)]);
    }
  }
}

/// Whether the layer may be made in the raster itself: it covers its pixels wholly and nothing shows through.
bool replacesRaster(const Picture& picture, const Layer& layer, CompositeOperation operation, float fraction) {
  const PlanarImage* frame = picture.planar();
  if (!frame || operation != CompositeOperation::sourceOver || fraction != 1) return false;
  if (layer.swapped || layer.u.flipped || layer.v.flipped) return false;
  const auto covers = [](const AxisMap& map) { return map.d0 == map.first && map.d1 == map.last; };
  const auto layout = frameLayout(*frame);
  return layout && !layout->hasAlpha && covers(layer.u.map) && covers(layer.v.map);
}

double pixelsPerPoint(int pixels, double points) {
  const double ratio = pixels / points;
  return points > 0 && std::isfinite(ratio) ? ratio : 1;
}

bool areFinite(const DrawingRect& rect) {
  return std::isfinite(rect.x) && std::isfinite(rect.y) && std::isfinite(rect.width) && std::isfinite(rect.height);
}

}  // namespace

DrawingContext::DrawingContext(Bitmap& raster)
    : raster_(raster),
      pixelsPerPointX_(pixelsPerPoint(raster.width(), raster.pointWidth())),
      pixelsPerPointY_(pixelsPerPoint(raster.height(), raster.pointHeight())) {}

void DrawingContext::fill(const DrawingRect& rect, const Colour& colour) {
  if (!areFinite(rect) || !(rect.width > 0) || !(rect.height > 0)) return;
  const double width = raster_.width();
  const double height = raster_.height();
  AxisMap x;
  AxisMap y;
  x.d0 = withoutRounding(std::clamp(rect.x * pixelsPerPointX_, 0.0, width));
  x.d1 = withoutRounding(std::clamp((rect.x + rect.width) * pixelsPerPointX_, 0.0, width));
  y.d0 = withoutRounding(std::clamp(height - (rect.y + rect.height) * pixelsPerPointY_, 0.0, height));
  y.d1 = withoutRounding(std::clamp(height - rect.y * pixelsPerPointY_, 0.0, height));
  x.first = static_cast<int>(std::floor(x.d0));
  y.first = static_cast<int>(std::floor(y.d0));
  x.last = static_cast<int>(std::ceil(x.d1));
  y.last = static_cast<int>(std::ceil(y.d1));

  const auto part = [](double value) { return value > 0 ? std::min(value, 1.0) : 0.0; };
  const double alpha = part(colour.alpha);
  const float values[4] = {static_cast<float>(part(colour.red) * alpha * 255),
                           static_cast<float>(part(colour.green) * alpha * 255),
                           static_cast<float>(part(colour.blue) * alpha * 255), static_cast<float>(alpha * 255)};
  const std::uint8_t whole[4] = {toByte(values[0]), toByte(values[1]), toByte(values[2]), toByte(values[3])};
  const bool wholeColumns = x.d0 == x.first && x.d1 == x.last;
  const std::uint8_t* wholeRow = nullptr;  // filled pixel by pixel once, then copied
  for (int j = 0; j < y.count(); ++j) {
    const float down = y.coverage(j);
    std::uint8_t* pixel = raster_.row(y.first + j) + static_cast<std::size_t>(x.first) * 4;
    if (down == 1 && wholeRow) {
      std::memcpy(pixel, wholeRow, static_cast<std::size_t>(x.count()) * 4);
      continue;
    }
    if (down == 1 && wholeColumns) wholeRow = pixel;
    for (int i = 0; i < x.count(); ++i, pixel += 4) {
      const float weight = down * x.coverage(i);
      if (weight == 1) {
        std::memcpy(pixel, whole, 4);
        continue;
      }
      for (int k = 0; k < 4; ++k) pixel[k] = toByte(values[k] * weight + static_cast<float>(pixel[k]) * (1 - weight));
    }
  }
}

bool DrawingContext::draw(const Picture& picture, const DrawingRect& destination, const DrawingRect& source,
                          CompositeOperation operation, float fraction) {
  try {
    return drawChecked(picture, destination, source, operation, fraction);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool DrawingContext::drawChecked(const Picture& picture, const DrawingRect& destination, const DrawingRect& source,
                                 CompositeOperation operation, float fraction) {
  if (!picture.isValid()) return false;
  const double width = picture.width();
  const double height = picture.height();
  const DrawingRect from = source.isEmpty() ? DrawingRect{0, 0, width, height} : source;
  const auto hasArea = [](const DrawingRect& rect) { return areFinite(rect) && rect.width > 0 && rect.height > 0; };
  if (!hasArea(from) || !hasArea(destination)) return true;

  Span x{destination.x * pixelsPerPointX_, (destination.x + destination.width) * pixelsPerPointX_, from.x,
         from.x + from.width};
  Span y{raster_.height() - (destination.y + destination.height) * pixelsPerPointY_,
         raster_.height() - destination.y * pixelsPerPointY_, height - (from.y + from.height), height - from.y};
  if (!x.cutToSource(width) || !y.cutToSource(height)) return true;
  if (!x.cutToRaster(raster_.width()) || !y.cutToRaster(raster_.height())) return true;

  Layer layer = picture.planar() ? layerOf(*picture.planar(), x, y) : layerOf(*picture.bitmap(), x, y);
  if (layer.u.map.count() < 1 || layer.v.map.count() < 1) return true;  // thinner than any share of a pixel
  if (replacesRaster(picture, layer, operation, fraction)) {
    std::uint8_t* corner = raster_.row(layer.v.map.first) + static_cast<std::size_t>(layer.u.map.first) * 4;
    return render(picture, layer, corner, raster_.rowBytes());
  }
  const auto rowBytes = static_cast<std::size_t>(layer.u.map.count()) * 4;
  layer.pixels.resize(rowBytes * static_cast<std::size_t>(layer.v.map.count()));
  if (!render(picture, layer, layer.pixels.data(), rowBytes)) return false;
  compositeLayer(layer, raster_, operation, fraction);
  return true;
}

}  // namespace vistrelle::platform
