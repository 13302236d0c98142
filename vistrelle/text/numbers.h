#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

double sizeInUnit(std::int64_t bytes, const platform::OptionalText& unit);

}  // namespace vistrelle
