#pragma once

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

bool rmCocoa(const platform::OptionalText& path);
bool mv(const platform::OptionalText& source, const platform::OptionalText& destination, const platform::OptionalText& overwrite);
bool cpCocoa(const platform::OptionalText& source, const platform::OptionalText& destination, const platform::OptionalText& overwrite);
bool mkdirCocoa(const platform::OptionalText& folder);

}  // namespace vistrelle
