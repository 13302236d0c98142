#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

#pragma GCC visibility push(default)

/// Still pictures in new sizes. Sizes are in pixels, `dpi` (72 when 0 or below) is the resolution stamped on the
/// result. Ratios are worked out in single precision and sizes truncated: the rounding is behaviour.
namespace vistrelle {

/// Rescales a picture and writes it where `destination` says, in the format of its extension.
/// `source` is a path (a text) or a platform::Picture; anything else fails. `modeInt`: 2 cropFill, 1 letterbox,
/// 0 stretch, -1 fitCanvas, -2 coverCanvas; any other fails. `quality` is imgExport's. True when the picture was
/// rescaled and a file is at the destination afterwards.
bool imgRescale(const platform::OptionalValue& source, const platform::OptionalText& destination, std::int64_t width,
                std::int64_t height, std::int64_t modeInt, double dpi, float quality);

/// Width and height of a picture file, truncated to whole pixels; nothing when there is no such picture.
std::optional<std::pair<std::int64_t, std::int64_t>> imgSizes(const platform::OptionalText& path);

// The five modes. A transparent-capable destination gets a transparent background, any other a black one. No result
// without a picture, when the size is no possible raster, or when the picture cannot be drawn.

/// Scaled to cover width x height, the excess cut off equally on both sides.
std::shared_ptr<platform::Bitmap> cropFill(const std::shared_ptr<const platform::Picture>& picture, std::int64_t width,
                                           std::int64_t height, bool transparentCapable, double dpi);
/// Scaled to fit inside width x height, centred on the background.
std::shared_ptr<platform::Bitmap> letterbox(const std::shared_ptr<const platform::Picture>& picture, std::int64_t width,
                                            std::int64_t height, bool transparentCapable, double dpi);
/// Stretched to width x height.
std::shared_ptr<platform::Bitmap> stretch(const std::shared_ptr<const platform::Picture>& picture, std::int64_t width,
                                          std::int64_t height, bool transparentCapable, double dpi);
/// Scaled to fit inside width x height; the raster is as large as the scaled picture.
std::shared_ptr<platform::Bitmap> fitCanvas(const std::shared_ptr<const platform::Picture>& picture, std::int64_t width,
                                            std::int64_t height, bool transparentCapable, double dpi);
/// Scaled to cover width x height; the raster is as large as the scaled picture. The background reaches 4 points
/// beyond width x height and no further.
std::shared_ptr<platform::Bitmap> coverCanvas(const std::shared_ptr<const platform::Picture>& picture,
                                              std::int64_t width, std::int64_t height, bool transparentCapable,
                                              double dpi);

}  // namespace vistrelle

#pragma GCC visibility pop
