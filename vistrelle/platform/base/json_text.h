#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/value.h"

namespace vistrelle::platform {

/// What stands for JSON's null in a value: an empty object.
inline Value jsonNull() {
  return Value(std::shared_ptr<const Opaque>());
}

/// The value, or null.
template <typename T>
Value jsonOrNull(const std::optional<T>& value) {
  return value ? Value(*value) : jsonNull();
}

/// The value as JSON text (RFC 8259), two blanks a level, keys in ascending order. Numbers print in the fewest digits
/// that read back as the same; one that is infinite or not a number is null, and so is an empty object. Dates are
/// texts, data is {"bytes": count}, colours are lists of four numbers, other objects their descriptions. Bytes that are
/// not valid UTF-8 come out as U+FFFD.
std::string jsonText(const Value& value);

/// The same on one line, without a line end. Every control character, those beyond ASCII included, is an escape.
std::string jsonLine(const Value& value);

/// What a JSON text says: numbers are std::int64_t, std::uint64_t or double. Nothing with an error text, which quotes
/// nothing of it, when it is not exactly one value of JSON in valid UTF-8, or nested more than 32 levels deep.
std::optional<Value> readJson(std::string_view text, std::string* error);

}  // namespace vistrelle::platform
