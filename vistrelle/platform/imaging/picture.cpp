#include "vistrelle/platform/imaging/picture.h"

#include <cmath>
#include <new>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/large_memory.h"
#include "vistrelle/platform/imaging/frame_layout.h"

namespace vistrelle::platform {

std::shared_ptr<Bitmap> Bitmap::make(std::int64_t width, std::int64_t height) {
  // Each side first: the product of two sides within the limit fits in 64 bits.
  if (width < 1 || height < 1 || width > kMaxPixels || height > kMaxPixels || width * height > kMaxPixels)
    return nullptr;
  try {
    auto bitmap = std::make_shared<Bitmap>();
    bitmap->pixels_ = largeMemory(static_cast<std::size_t>(width * height) * 4);
    if (!bitmap->pixels_) return nullptr;
    bitmap->width_ = static_cast<int>(width);
    bitmap->height_ = static_cast<int>(height);
    bitmap->setPointSize(static_cast<double>(width), static_cast<double>(height));
    return bitmap;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void Bitmap::setPointSize(double width, double height) {
  pointWidth_ = width;
  pointHeight_ = height;
}

std::string Bitmap::description() const {
  return format("bitmap {} x {} pixels, {} x {} points", width_, height_, pointWidth_, pointHeight_);
}

bool Picture::isValid() const {
  if (const Bitmap* raster = bitmap()) return raster->width() > 0 && raster->height() > 0;
  const PlanarImage* frame = planar();
  return frame && isDrawable(*frame);
}

double Picture::width() const {
  if (const Bitmap* raster = bitmap()) return raster->width();
  const PlanarImage* frame = planar();
  if (!frame) return 0;
  return frame->orientation.swapsSides() ? frame->presentationHeight : frame->presentationWidth;
}

double Picture::height() const {
  if (const Bitmap* raster = bitmap()) return raster->height();
  const PlanarImage* frame = planar();
  if (!frame) return 0;
  return frame->orientation.swapsSides() ? frame->presentationWidth : frame->presentationHeight;
}

const Bitmap* Picture::bitmap() const {
  const auto* raster = std::get_if<std::shared_ptr<const Bitmap>>(&content_);
  return raster ? raster->get() : nullptr;
}

const PlanarImage* Picture::planar() const {
  return std::get_if<PlanarImage>(&content_);
}

std::string Picture::description() const {
  return format("picture {} x {}", width(), height());
}

}  // namespace vistrelle::platform
