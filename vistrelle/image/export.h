#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle {

bool imgExport(const std::shared_ptr<const platform::Bitmap>& raster, const platform::OptionalText& path, float quality);

}  // namespace vistrelle
