#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/text/encoding.h"

/// The encodings of one byte a character that ICU does not have.
namespace vistrelle::platform {

/// What each byte means; 0 (but for byte 0) marks a byte without meaning.
using ByteTable = std::array<char16_t, 256>;

/// The table of number 2 or 6; null for every other encoding.
const ByteTable* byteTable(EncodingNumber encoding);

OptionalText decodeWithTable(std::string_view bytes, const ByteTable& table);
/// Nothing when a character is missing from the table.
std::optional<std::string> encodeWithTable(std::string_view text, const ByteTable& table);
bool isInTable(char32_t character, const ByteTable& table);

}  // namespace vistrelle::platform
