#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

using platform::OptionalText;
using platform::OptionalValue;
using platform::Value;

OptionalText findAndReplace(const OptionalText& text, const OptionalText& search, const OptionalText& replacement, bool repeat);
float str2Float(const OptionalText& text);
float str2FloatInner(const std::string& text);
std::string shortDescription(const OptionalValue& object, std::int64_t maximum = -1);
OptionalText trimBlanks(const OptionalText& text, bool leading, bool trailing);
std::vector<std::string> splitLines(const OptionalText& text);
float progressValueAfter(const OptionalText& text, const OptionalText& marker);
std::string joinWords(const std::vector<std::string>& list);

}  // namespace vistrelle
