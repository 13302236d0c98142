#pragma once

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

platform::OptionalValue prefRead(const platform::OptionalText& key);
bool isDeveloperMachine();

}  // namespace vistrelle
