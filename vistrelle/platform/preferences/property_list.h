#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/value.h"

/// Property lists: texts, numbers, booleans, dates, data, lists and dictionaries in a file.
namespace vistrelle::platform {

/// What a property list may be at most; a hostile file breaks one of these rather than the program.
struct PropertyListLimits {
  std::size_t bytes = std::size_t{32} << 20U;
  /// Lists and dictionaries inside each other.
  std::size_t depth = 256;
  /// Values altogether, each counted as often as it is referred to.
  std::size_t values = 1'000'000;
};

struct PropertyListReading {
  /// Absent when the bytes are no property list or break a limit; `error` then says why.
  OptionalValue value;
  std::string error;
};

struct PropertyListWriting {
  /// Absent when the value holds something that a property list cannot; `error` then says what.
  std::optional<std::string> bytes;
  std::string error;
};

/// Reads the binary form ("bplist00") or the XML form (UTF-8). Whole numbers come back as int64, or as uint64 above
/// its range; a real as double, or as float where four bytes are stored; a keyed archive's reference as a dictionary
/// with the one key "CF$UID". Sets, null values and declared XML entities are refused.
PropertyListReading readPropertyList(std::string_view bytes, const PropertyListLimits& limits = {});

/// The same for a file; at most `limits.bytes` of it are read.
PropertyListReading readPropertyListFile(const std::string& path, const PropertyListLimits& limits = {});

/// The binary form of `value`. Dates keep their microseconds within 270 years around 2001. Bytes of a text that are
/// not UTF-8 are written as U+FFFD. A URL, a colour, an opaque object, or nesting deeper than can be read back fails.
PropertyListWriting writeBinaryPropertyList(const Value& value);

}  // namespace vistrelle::platform
