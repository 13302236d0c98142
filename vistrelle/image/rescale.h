#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle {

/// `source` is a path (a text) or a platform::Picture; anything else fails.
bool imgRescale(const platform::OptionalValue& source, const platform::OptionalText& destination, std::int64_t width,
                std::int64_t height, std::int64_t modeInt, double dpi, float quality);

}  // namespace vistrelle
