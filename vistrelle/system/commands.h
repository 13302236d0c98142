#pragma once

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

platform::OptionalText readContentsTxtViaCat(const platform::OptionalText& path);

}  // namespace vistrelle
