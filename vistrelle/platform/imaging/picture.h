#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// 8-bit RGBA raster, colour multiplied by alpha, sRGB, rows top to bottom without padding (4 x width bytes).
/// Its resolution is what a writer stamps into the file; its point size is pixels x 72 / dpi.
class Bitmap : public Opaque {
 public:
  /// Pixels a raster may have at most, checked in 64 bits before anything is allocated.
  static constexpr std::int64_t kMaxPixels = std::int64_t{1} << 28;

  /// A transparent raster; empty when a side is below 1, the limit is exceeded or memory is short.
  static std::shared_ptr<Bitmap> make(std::int64_t width, std::int64_t height);

  int width() const { return width_; }
  int height() const { return height_; }
  std::size_t rowBytes() const { return static_cast<std::size_t>(width_) * 4; }
  std::uint8_t* row(int y) { return pixels_.get() + rowBytes() * static_cast<std::size_t>(y); }
  const std::uint8_t* row(int y) const { return pixels_.get() + rowBytes() * static_cast<std::size_t>(y); }

  void setPointSize(double width, double height);
  double pointWidth() const { return pointWidth_; }
  double pointHeight() const { return pointHeight_; }
  double dpi() const { return pointWidth_ > 0 ? width_ * 72.0 / pointWidth_ : 72.0; }

  std::string description() const override;

 private:
  int width_ = 0;
  int height_ = 0;
  double pointWidth_ = 0;
  double pointHeight_ = 0;
  std::shared_ptr<std::uint8_t[]> pixels_;
};

/// How a frame is to be turned for display: first mirrored left to right, then turned clockwise.
struct Orientation {
  bool mirrored = false;
  int quarterTurnsClockwise = 0;  ///< 0 to 3
  bool swapsSides() const { return quarterTurnsClockwise % 2 != 0; }
  bool operator==(const Orientation&) const = default;
};

/// Colour description by the code points of ITU-T H.273; 2 is "unspecified". `range`: 0 unspecified, 1 limited, 2 full.
struct ColourTags {
  std::uint8_t primaries = 2;
  std::uint8_t transfer = 2;
  std::uint8_t matrix = 2;
  std::uint8_t range = 0;
  bool operator==(const ColourTags&) const = default;
};

/// A rectangle in pixels of the stored planes, origin at the upper left; may start and end between pixels.
struct PixelRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const PixelRect&) const = default;
};

/// A decoded frame as plain planes. Nothing is copied: `owner` keeps the planes alive and unchanged.
struct PlanarImage {
  struct Plane {
    const std::uint8_t* data = nullptr;
    int rowBytes = 0;
  };
  /// The pixel layout by the name that FFmpeg's libavutil gives it ("yuv420p10le", "rgba", "pal8").
  std::string layout;
  int width = 0;  ///< of the stored luma or colour plane
  int height = 0;
  std::array<Plane, 4> planes;
  /// The part that is shown (clean aperture); the whole frame when not cropped.
  PixelRect visible;
  ColourTags colour;
  /// Position of chroma samples, code points of libavutil's AVChromaLocation (0 unspecified).
  int chromaLocation = 0;
  Orientation orientation;
  /// Size of the visible part as presented, square pixels, before `orientation`.
  double presentationWidth = 0;
  double presentationHeight = 0;
  bool interlaced = false;
  bool topFieldFirst = false;
  std::shared_ptr<const void> owner;
};

/// A still picture: a raster or a decoded frame. Its size is its pixel size as shown (frames: presentation size,
/// turned); the resolution stored in a picture file plays no part. Immutable; may be shared between threads.
class Picture : public Opaque {
 public:
  explicit Picture(std::shared_ptr<const Bitmap> bitmap) : content_(std::move(bitmap)) {}
  explicit Picture(PlanarImage image) : content_(std::move(image)) {}

  /// Loads a picture file (any of the formats the system writes, but PDF). Empty when it cannot be opened as a
  /// regular file or decoded. Encoded data is limited in pixels like Bitmap.
  static std::shared_ptr<const Picture> load(const std::string& path);

  bool isValid() const;
  double width() const;
  double height() const;

  const Bitmap* bitmap() const;
  const PlanarImage* planar() const;
  std::string description() const override;

 private:
  std::variant<std::shared_ptr<const Bitmap>, PlanarImage> content_;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
