#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

#pragma GCC visibility push(default)

/// Writers of pictures. The extension of the path, compared without case, names the format: "jpg", "jpeg", "tif",
/// "tiff", "bmp", "gif", "png", "jp2", "jpx", "pdf"; anything else is written as JPEG. Sizes are in pixels.
namespace vistrelle {

/// Writes the raster in place. `quality` (0 to 1; anything outside, and 0, is taken as 0.9) is used for "jpg" and
/// "jpeg" only. True when a file is at the path afterwards, which may be an older one that a failed write left; for
/// "pdf" true when the write succeeded. False without a raster or path.
bool imgExport(const std::shared_ptr<const platform::Bitmap>& raster, const platform::OptionalText& path,
               float quality);

/// Writes a picture of one colour, on black where the colour is not opaque, at 72 dpi.
bool imgFillColor(const std::optional<platform::Colour>& colour, const platform::OptionalText& path, std::int64_t width,
                  std::int64_t height);

/// Writes a PNG of one colour whose alpha is multiplied by `opacity`, whatever the extension. True when a file is at
/// the path afterwards.
bool imgColorSwatchPng(const std::optional<platform::Colour>& colour, const platform::OptionalText& path,
                       std::int64_t width, std::int64_t height, float opacity);

}  // namespace vistrelle

#pragma GCC visibility pop
