#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/text/encoding.h"

/// The encodings that ICU converts.
namespace vistrelle::platform {

/// ICU's name of an encoding; null for one that it does not convert here.
const char* icuName(EncodingNumber encoding);

OptionalText decodeWithIcu(std::string_view bytes, const char* name);
std::optional<std::string> encodeWithIcu(std::string_view text, const char* name);

using IsEncodable = std::function<bool(char32_t)>;
/// The characters that an encoding has.
IsEncodable encodableByIcu(const char* name);

/// `text` with every character that is not encodable replaced by what it is made of, or "?".
std::string replaceUnencodable(std::string_view text, const IsEncodable& isEncodable);

/// The detector's answer among Shift JIS, Japanese EUC and Latin 1 where it is sure enough, else kNoEncoding.
EncodingNumber detectWithIcu(std::string_view bytes);

}  // namespace vistrelle::platform
