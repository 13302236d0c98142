#include "vistrelle/platform/imaging/row_sources.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "vistrelle/platform/imaging/colour_conversion.h"
#include "vistrelle/platform/imaging/frame_scaler.h"

namespace vistrelle::platform {
namespace {

class BitmapRows : public RowSource {
 public:
  explicit BitmapRows(const Bitmap& bitmap) : bitmap_(bitmap) {}
  void read(int y, int first, int last, float* rgba) override {
    const std::uint8_t* in = bitmap_.row(y) + static_cast<std::size_t>(first) * 4;
    const std::size_t count = static_cast<std::size_t>(last - first + 1) * 4;
    for (std::size_t i = 0; i < count; ++i) rgba[i] = static_cast<float>(in[i]) * (1.0F / 255);
  }

 private:
  const Bitmap& bitmap_;
};

/// Red, green and blue in any order, depth and packing, palettes too, sample by sample as libavutil describes them.
class RgbRows : public RowSource {
 public:
  RgbRows(const PlanarImage& image, const FrameLayout& layout)
      : conversion_(image, layout),
        descriptor_(*av_pix_fmt_desc_get(static_cast<AVPixelFormat>(layout.format))),
        fullRange_(layout.fullRange) {
    for (std::size_t plane = 0; plane < 4; ++plane) {
      data_[plane] = image.planes[plane].data;
      rowBytes_[plane] = image.planes[plane].rowBytes;
    }
    isPalette_ = (descriptor_.flags & AV_PIX_FMT_FLAG_PAL) != 0;
    components_ = isPalette_ ? 4 : descriptor_.nb_components;
    isFloat_ = layout.isFloat;
  }

  void read(int y, int first, int last, float* rgba) override {
    const int count = last - first + 1;
    samples_.resize(static_cast<std::size_t>(count));
    if (isFloat_) floats_.resize(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) rgba[4 * i + 3] = 1;
    if (isPalette_) {
      readPalette(y, first, count, rgba);
    } else {
      for (int component = 0; component < components_; ++component) readComponent(component, y, first, count, rgba);
    }
    if (components_ < 3) {
      // Gray, perhaps with alpha.
      for (int i = 0; i < count; ++i) {
        if (components_ == 2) rgba[4 * i + 3] = rgba[4 * i + 1];
        rgba[4 * i + 1] = rgba[4 * i + 2] = rgba[4 * i];
      }
    }
    conversion_.mapTones(rgba, count);
    if (components_ == 1 || components_ == 3) return;
    for (int i = 0; i < count; ++i) {
      for (int part = 0; part < 3; ++part) rgba[4 * i + part] *= rgba[4 * i + 3];
    }
  }

 private:
  void readSamples(int component, int y, int first, int count) {
    av_read_image_line2(samples_.data(), data_.data(), rowBytes_.data(), &descriptor_, first, y, component, count, 0,
                        sizeof(samples_[0]));
  }

  /// 256 entries of alpha, red, green and blue from the upper to the lower byte of a native 32-bit number.
  void readPalette(int y, int first, int count, float* rgba) {
    readSamples(0, y, first, count);
    for (int i = 0; i < count; ++i) {
      std::uint32_t entry = 0;
      std::memcpy(&entry, data_[1] + std::size_t{4} * samples_[static_cast<std::size_t>(i)], sizeof entry);
      for (const int shift : {16, 8, 0, 24}) *rgba++ = static_cast<float>(entry >> shift & 0xFF) / 255;
    }
  }

  void readComponent(int component, int y, int first, int count, float* rgba) {
    if (isFloat_) {
      av_read_image_line2(floats_.data(), data_.data(), rowBytes_.data(), &descriptor_, first, y, component, count, 0,
                          sizeof(floats_[0]));
      for (int i = 0; i < count; ++i) {
        const auto value = std::bit_cast<float>(floats_[static_cast<std::size_t>(i)]);
        rgba[4 * i + component] = value > 0 ? std::min(value, 1.0F) : 0.0F;  // what is no number is black
      }
      return;
    }
    readSamples(component, y, first, count);
    const int depth = descriptor_.comp[component].depth;
    const bool limited = !fullRange_ && component < 3;
    const float black = limited ? std::ldexp(16.0F, depth - 8) : 0.0F;
    const float span = limited ? std::ldexp(219.0F, depth - 8) : std::ldexp(1.0F, depth) - 1;
    for (int i = 0; i < count; ++i) {
      const float value = (static_cast<float>(samples_[static_cast<std::size_t>(i)]) - black) / span;
      rgba[4 * i + component] = std::clamp(value, 0.0F, 1.0F);
    }
  }

  ColourConversion conversion_;
  const AVPixFmtDescriptor& descriptor_;
  bool fullRange_;
  bool isPalette_ = false;
  int components_ = 0;
  std::array<const std::uint8_t*, 4> data_{};
  std::array<int, 4> rowBytes_{};
  std::vector<std::uint16_t> samples_;
  bool isFloat_ = false;
  std::vector<std::uint32_t> floats_;
};

/// Luma and chroma, chroma brought to full resolution.
class LumaChromaRows : public RowSource {
 public:
  LumaChromaRows(const PlanarImage& image, const FrameLayout& layout, FullPlanes planes)
      : conversion_(image, layout), planes_(std::move(planes)) {}
  void read(int y, int first, int last, float* rgba) override {
    conversion_.toFloat(planes_.row(0, y) + first, planes_.row(1, y) + first, planes_.row(2, y) + first,
                        planes_.hasAlpha ? planes_.row(3, y) + first : nullptr, last - first + 1, rgba);
  }

 private:
  ColourConversion conversion_;
  FullPlanes planes_;
};

}  // namespace

std::unique_ptr<RowSource> bitmapRows(const Bitmap& bitmap) {
  return std::make_unique<BitmapRows>(bitmap);
}

std::unique_ptr<RowSource> frameRows(const PlanarImage& image, const FrameLayout& layout) {
  if (layout.isRgb) return std::make_unique<RgbRows>(image, layout);
  auto planes = scaleFrame(image, layout, {0, 0, image.width, image.height}, image.width, image.height);
  if (!planes) return nullptr;
  return std::make_unique<LumaChromaRows>(image, layout, std::move(*planes));
}

}  // namespace vistrelle::platform
