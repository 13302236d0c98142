#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vistrelle/platform/base/value.h"

/// Numbers read from text, the same in every locale.
namespace vistrelle {

struct ScannedFloat {
  float value = 0;
  std::size_t length = 0;  ///< bytes read; 0 when no number stands at the start
};

/// The number that begins exactly at the start: optional sign, digits, point, exponent ("+2", ".5", "1e3"), rounded
/// to the nearest single-precision value; infinity on overflow, 0 on underflow. "inf", "nan" and hexadecimal forms are
/// no numbers.
ScannedFloat scanFloat(std::string_view text);

/// The number at the start, white space before it skipped; 0 when there is none.
float floatValue(std::string_view text);

/// The whole number at the start (optional sign, digits), white space before it skipped; 0 when there is none, the
/// nearest 64-bit number on overflow.
std::int64_t integerValue(std::string_view text);

/// The whole number that a value stands for: a number without its fraction, of everything else the number at the start
/// of its text.
std::int64_t integerOf(const platform::Value& value);

/// The number without its fraction: 0 for what is not a number, the nearest 64-bit number beyond the range.
std::int64_t truncatedInteger(double number);

}  // namespace vistrelle
