#pragma once

#include <cstdint>
#include <string_view>

#include "vistrelle/platform/preferences/property_list.h"

/// The binary property list, as Python's plistlib and libplist document it: "bplist00", the objects, a table of their
/// offsets, and a trailer of 32 bytes. Each object begins with a marker byte: kind in the high four bits, length or
/// size in the low four. All numbers are big-endian.
///
/// Read and written here and not by libplist, because values must come back exactly: through its functions the sign of
/// large whole numbers, dates outside 1933 to 2069 and what follows a NUL in a text are lost; and because the limits
/// must hold while a file is read, not only afterwards. libplist is left the XML form.
namespace vistrelle::platform::binary_plist {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;

enum Kind : std::uint8_t {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kUid = 0x8,
  kList = 0xA,
  kDictionary = 0xD,
};
constexpr std::uint8_t kFalse = 0x08;
constexpr std::uint8_t kTrue = 0x09;
/// A length of 15 and more follows as an integer object.
constexpr std::uint8_t kLongLength = 0xF;

/// Dates count seconds from 2001-01-01 00:00:00 UTC.
constexpr std::int64_t kEpochAfter1970 = 978'307'200;
constexpr const char* kUidKey = "CF$UID";

/// How a real of four bytes comes back.
enum class ShortReal { kFloat, kDouble };

PropertyListReading read(std::string_view bytes, const PropertyListLimits& limits, ShortReal shortReal);

}  // namespace vistrelle::platform::binary_plist
