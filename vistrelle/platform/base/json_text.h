#pragma once

#include <string>

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

}  // namespace vistrelle::platform
