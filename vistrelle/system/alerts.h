#pragma once

#include <cstdint>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

platform::OptionalText alertGiveUp(const platform::OptionalText& message, const platform::OptionalText& informative,
                                   const platform::OptionalText& button1, const platform::OptionalText& button2,
                                   const platform::OptionalText& button3, std::int64_t style, std::int64_t seconds);

}  // namespace vistrelle
