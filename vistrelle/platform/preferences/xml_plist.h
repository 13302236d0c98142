#pragma once

#include <string_view>

#include "vistrelle/platform/preferences/property_list.h"

namespace vistrelle::platform::xml_plist {

/// Whether `bytes` look like the XML form: "<" after blanks and an optional UTF-8 byte-order mark.
bool looksLike(std::string_view bytes);

PropertyListReading read(std::string_view bytes, const PropertyListLimits& limits);

}  // namespace vistrelle::platform::xml_plist
